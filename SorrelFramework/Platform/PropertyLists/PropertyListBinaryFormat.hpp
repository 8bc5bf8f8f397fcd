#pragma once

#include <cstddef>
#include <string_view>

/// The constants of the binary form ("bplist00"), shared by its reader and its writer. The form: the header,
/// the objects, a table of their offsets, a trailer of 32 bytes; all numbers big-endian.
namespace sorrel::propertylist {

inline constexpr std::string_view kHeader = "bplist00";
inline constexpr std::size_t kTrailerSize = 32;

/// The high half of the first byte of each object.
enum Marker : unsigned {
  kSimple = 0x0,
  kInteger = 0x1,
  kReal = 0x2,
  kDate = 0x3,
  kData = 0x4,
  kASCII = 0x5,
  kUTF16 = 0x6,
  kUTF8 = 0x7,
  kUID = 0x8,
  kArray = 0xA,
  kDictionary = 0xD,
};
inline constexpr unsigned kFalse = 0x8;
inline constexpr unsigned kTrue = 0x9;
inline constexpr unsigned kLongCount = 0xF;

}  // namespace sorrel::propertylist
