#include "Host/SafeText.hpp"

#include <array>
#include <cstddef>
#include <cstdio>

#include "SorrelFramework/Platform/Text/Text.hpp"

namespace sorrel::cli {
namespace {

bool isUnsafe(unsigned point) {
  return point < 0x20 || (point >= 0x7F && point <= 0x9F) || point == 0x061C || point == 0x200E ||
         point == 0x200F || (point >= 0x2028 && point <= 0x202E) || (point >= 0x2066 && point <= 0x2069);
}

std::string escaped(unsigned point) {
  switch (point) {
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    default:
      break;
  }
  std::array<char, 12> text{};
  const char* const format = point < 0x100 ? "\\x%02x" : "\\u%04x";
  const int length = std::snprintf(text.data(), text.size(), format, point);
  return {text.data(), static_cast<std::size_t>(length)};
}

/// The number of bytes of the character with this first byte, in valid UTF-8.
std::size_t lengthOf(unsigned char lead) { return lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4; }

unsigned codePoint(std::string_view character) {
  const auto byteAt = [character](std::size_t i) { return static_cast<unsigned char>(character[i]); };
  if (character.size() == 1) return byteAt(0);
  unsigned point = byteAt(0) & (0x7FU >> character.size());
  for (std::size_t i = 1; i < character.size(); ++i) point = point << 6 | (byteAt(i) & 0x3FU);
  return point;
}

}  // namespace

std::string validUTF8(std::string_view bytes) { return replacingInvalidUTF8(bytes); }

std::string printable(std::string_view bytes) {
  const std::string valid = validUTF8(bytes);
  std::string text;
  text.reserve(valid.size());
  for (std::size_t at = 0; at < valid.size();) {
    const std::string_view character =
        std::string_view(valid).substr(at, lengthOf(static_cast<unsigned char>(valid[at])));
    const unsigned point = codePoint(character);
    if (isUnsafe(point)) {
      text += escaped(point);
    } else {
      text += character;
    }
    at += character.size();
  }
  return text;
}

}  // namespace sorrel::cli
