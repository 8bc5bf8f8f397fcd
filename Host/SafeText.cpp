#include "Host/SafeText.hpp"

#include <array>
#include <cstddef>
#include <cstdio>

namespace sorrel::cli {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

unsigned byteAt(std::string_view text, std::size_t at) {
  return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
}

struct Sequence {
  std::size_t length;  // bytes taken, at least 1
  bool valid;
};

// Table 3-7 of the Unicode standard: lead bytes, how many follow, and the narrower range of the second byte.
Sequence sequenceAt(std::string_view text, std::size_t at) {
  const unsigned lead = byteAt(text, at);
  if (lead < 0x80) return {1, true};
  if (lead < 0xC2 || lead > 0xF4) return {1, false};
  const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  unsigned least = 0x80;
  unsigned most = 0xBF;
  if (lead == 0xE0) least = 0xA0;
  if (lead == 0xED) most = 0x9F;
  if (lead == 0xF0) least = 0x90;
  if (lead == 0xF4) most = 0x8F;
  for (std::size_t i = 1; i < length; ++i) {
    const unsigned next = byteAt(text, at + i);
    if (next < least || next > most) return {i, false};
    least = 0x80;
    most = 0xBF;
  }
  return {length, true};
}

unsigned codePoint(std::string_view sequence) {
  const unsigned lead = byteAt(sequence, 0);
  if (sequence.size() == 1) return lead;
  unsigned value = lead & (0x7FU >> sequence.size());
  for (std::size_t i = 1; i < sequence.size(); ++i) value = value << 6 | (byteAt(sequence, i) & 0x3FU);
  return value;
}

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

template <class Append>
void forEachSequence(std::string_view bytes, Append append) {
  for (std::size_t at = 0; at < bytes.size();) {
    const Sequence sequence = sequenceAt(bytes, at);
    append(sequence.valid ? bytes.substr(at, sequence.length) : kReplacement);
    at += sequence.length;
  }
}

}  // namespace

std::string validUTF8(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  forEachSequence(bytes, [&](std::string_view sequence) { text += sequence; });
  return text;
}

std::string printable(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  forEachSequence(bytes, [&](std::string_view sequence) {
    const unsigned point = codePoint(sequence);
    if (isUnsafe(point)) {
      text += escaped(point);
    } else {
      text += sequence;
    }
  });
  return text;
}

std::string sizeText(std::int64_t bytes) {
  if (bytes < 1024) return std::to_string(bytes) + " B";
  constexpr std::array<const char*, 6> kUnits = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  double value = static_cast<double>(bytes) / 1024;
  std::size_t unit = 0;
  // 1023.95 would be printed as 1024.0.
  while (value >= 1023.95 && unit + 1 < kUnits.size()) {
    value /= 1024;
    ++unit;
  }
  std::array<char, 32> text{};
  const int length = std::snprintf(text.data(), text.size(), "%.1f %s", value, kUnits[unit]);
  return {text.data(), static_cast<std::size_t>(length)};
}

}  // namespace sorrel::cli
