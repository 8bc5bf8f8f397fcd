#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace sorrel::cli {

/// The text of a JSON object that grows field by field; a tree of a million records makes a million of them.
class JsonObject {
 public:
  JsonObject& text(std::string_view name, std::string_view bytes);  ///< bytes that are no UTF-8 become U+FFFD
  JsonObject& integer(std::string_view name, std::int64_t value);
  JsonObject& real(std::string_view name, double value);  ///< null for what is no finite number
  JsonObject& flag(std::string_view name, bool value);
  JsonObject& null(std::string_view name) { return raw(name, "null"); }
  /// A value that is JSON already.
  JsonObject& raw(std::string_view name, std::string_view json);

  /// Without the brace at its end, for fields that follow piece by piece.
  [[nodiscard]] const std::string& open() const noexcept { return text_; }
  [[nodiscard]] std::string closed() const { return text_ + '}'; }

 private:
  void key(std::string_view name);

  std::string text_ = "{";
};

/// Appends a JSON string.
void appendJsonText(std::string& out, std::string_view bytes);

/// "[a,b]" of texts.
template <class Texts, class TextOf>
std::string jsonTextList(const Texts& texts, TextOf textOf) {
  std::string list = "[";
  for (const auto& text : texts) {
    if (list.size() > 1) list += ',';
    appendJsonText(list, textOf(text));
  }
  return list + ']';
}

/// As in a document: the shortest decimal that is that number.
std::string jsonReal(double value);

}  // namespace sorrel::cli
