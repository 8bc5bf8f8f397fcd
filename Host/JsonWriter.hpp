#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

namespace sorrel::cli {

/// Writes one JSON document to a stream, value by value, with the commas between them, so that a tree of a
/// million records needs no second copy. Every value in an object follows its key. The document is complete
/// once the writer is destroyed.
class JsonWriter {
 public:
  explicit JsonWriter(std::ostream& out) : out_(out) {}
  ~JsonWriter();
  JsonWriter(const JsonWriter&) = delete;
  JsonWriter& operator=(const JsonWriter&) = delete;

  JsonWriter& beginObject() { return begin('{'); }
  JsonWriter& endObject() { return end('}'); }
  JsonWriter& beginList() { return begin('['); }
  JsonWriter& endList() { return end(']'); }
  JsonWriter& key(std::string_view name);  ///< `name` is plain ASCII

  JsonWriter& text(std::string_view bytes);  ///< bytes that are not UTF-8 become U+FFFD
  JsonWriter& integer(std::int64_t value);
  JsonWriter& real(double value);  ///< the shortest decimal that gives this number; null if not finite
  JsonWriter& flag(bool value) { return json(value ? "true" : "false"); }
  JsonWriter& null() { return json("null"); }
  JsonWriter& json(std::string_view value);  ///< a value that is JSON already

  // A key with its value.
  JsonWriter& text(std::string_view name, std::string_view bytes) { return key(name).text(bytes); }
  JsonWriter& integer(std::string_view name, std::int64_t value) { return key(name).integer(value); }
  JsonWriter& real(std::string_view name, double value) { return key(name).real(value); }
  JsonWriter& flag(std::string_view name, bool value) { return key(name).flag(value); }
  JsonWriter& null(std::string_view name) { return key(name).null(); }
  JsonWriter& json(std::string_view name, std::string_view value) { return key(name).json(value); }

 private:
  JsonWriter& begin(char bracket);
  JsonWriter& end(char bracket);
  void separate();
  void flush();

  std::ostream& out_;
  std::string buffer_;
  bool followsValue_ = false;  // the next key or value needs a comma before it
};

}  // namespace sorrel::cli
