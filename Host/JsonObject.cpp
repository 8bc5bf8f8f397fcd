#include "Host/JsonObject.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Host/SafeText.hpp"

namespace sorrel::cli {
namespace {

bool isPlain(char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; }

}  // namespace

void appendJsonText(std::string& out, std::string_view bytes) {
  // Nearly all texts are plain ASCII, which stands for itself.
  if (std::ranges::all_of(bytes, isPlain)) {
    out.append(1, '"').append(bytes).append(1, '"');
    return;
  }
  out += nlohmann::json(validUTF8(bytes)).dump();
}

std::string jsonReal(double value) { return nlohmann::json(value).dump(); }

JsonObject& JsonObject::text(std::string_view name, std::string_view bytes) {
  key(name);
  appendJsonText(text_, bytes);
  return *this;
}

JsonObject& JsonObject::integer(std::string_view name, std::int64_t value) {
  return raw(name, std::to_string(value));
}

JsonObject& JsonObject::real(std::string_view name, double value) { return raw(name, jsonReal(value)); }

JsonObject& JsonObject::flag(std::string_view name, bool value) {
  return raw(name, value ? "true" : "false");
}

JsonObject& JsonObject::raw(std::string_view name, std::string_view json) {
  key(name);
  text_ += json;
  return *this;
}

void JsonObject::key(std::string_view name) {
  if (text_.size() > 1) text_ += ',';
  text_.append(1, '"').append(name).append("\":");
}

}  // namespace sorrel::cli
