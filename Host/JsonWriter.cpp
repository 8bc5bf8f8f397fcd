#include "Host/JsonWriter.hpp"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <ostream>

#include "Host/SafeText.hpp"

namespace sorrel::cli {
namespace {

constexpr std::size_t kBufferSize = 1 << 16;

bool isPlain(char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; }

}  // namespace

JsonWriter::~JsonWriter() { flush(); }

JsonWriter& JsonWriter::key(std::string_view name) {
  separate();
  buffer_.append(1, '"').append(name).append("\":");
  followsValue_ = false;
  return *this;
}

JsonWriter& JsonWriter::text(std::string_view bytes) {
  // Nearly all texts are plain ASCII, which needs no escapes.
  if (!std::ranges::all_of(bytes, isPlain)) return json(nlohmann::json(validUTF8(bytes)).dump());
  separate();
  buffer_.append(1, '"').append(bytes).append(1, '"');
  return *this;
}

JsonWriter& JsonWriter::integer(std::int64_t value) {
  char digits[24];
  const auto written = std::to_chars(std::begin(digits), std::end(digits), value);
  return json({digits, static_cast<std::size_t>(written.ptr - digits)});
}

JsonWriter& JsonWriter::real(double value) { return json(nlohmann::json(value).dump()); }

JsonWriter& JsonWriter::json(std::string_view value) {
  separate();
  buffer_ += value;
  return *this;
}

JsonWriter& JsonWriter::begin(char bracket) {
  separate();
  buffer_ += bracket;
  followsValue_ = false;
  return *this;
}

JsonWriter& JsonWriter::end(char bracket) {
  buffer_ += bracket;
  followsValue_ = true;
  if (buffer_.size() >= kBufferSize) flush();
  return *this;
}

void JsonWriter::separate() {
  if (followsValue_) buffer_ += ',';
  followsValue_ = true;
}

void JsonWriter::flush() {
  out_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
  buffer_.clear();
}

}  // namespace sorrel::cli
