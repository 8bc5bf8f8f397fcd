#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sorrel {

// The digest of a text (RFC 1321), on signed 32-bit words held in sparse dictionaries. It is the identity
// text of a category and has no security purpose. All functions are pure: any thread.

/// Word index to word; a missing word counts as 0.
using MD5Words = std::map<int, std::int32_t>;

/// The MD5 of the UTF-8 bytes of `text` as 32 upper-case hexadecimal digits.
[[nodiscard]] std::string MD5(std::string_view text);
/// The same under its older name.
[[nodiscard]] std::string hex_md5(std::string_view text);

/// The UTF-8 bytes of a text.
[[nodiscard]] std::vector<std::uint8_t> str2rstr_utf8(std::string_view text);
/// The 16 bytes of the digest of bytes.
[[nodiscard]] std::vector<std::uint8_t> rstr_md5(const std::vector<std::uint8_t>& bytes);
/// Two upper-case digits for each byte.
[[nodiscard]] std::string rstr2hex(const std::vector<std::uint8_t>& bytes);
/// A text with one scalar value for each byte: 0xE9 gives U+00E9.
[[nodiscard]] std::string rstr2tr(const std::vector<std::uint8_t>& bytes);
/// Bytes packed into words, the lowest byte first; the last word is filled with zero bits.
[[nodiscard]] std::vector<std::int32_t> rstr2binl(const std::vector<std::uint8_t>& bytes);
/// An array with one element for each key of the dictionary. The keys must run from 0 without a gap; a key
/// beyond is a fatal stop.
[[nodiscard]] std::vector<std::int32_t> dictionary2array(const MD5Words& words);
/// Words to four bytes each, the lowest first.
[[nodiscard]] std::vector<std::uint8_t> binl2rstr(const std::vector<std::int32_t>& words);
/// The four words of the digest of `bitLength` bits packed into `words`. Lengths are signed words of 32 bits:
/// in this and the functions above, a length that does not fit is a fatal stop.
[[nodiscard]] std::vector<std::int32_t> binl_md5(const std::vector<std::int32_t>& words, int bitLength);

/// The largest key plus 1; 1 for an empty dictionary.
[[nodiscard]] int length(const MD5Words& words);
[[nodiscard]] std::int32_t unwrap(std::optional<std::int32_t> value, std::int32_t fallback = 0);
/// Logical shift: the sign bit does not spread. A count of 32 or more gives 0.
[[nodiscard]] std::int32_t zeroFillRightShift(std::int32_t value, int count);
/// Addition that wraps.
[[nodiscard]] std::int32_t safe_add(std::int32_t x, std::int32_t y);
/// Rotates left; counts from 0 to 32.
[[nodiscard]] std::int32_t bit_rol(std::int32_t value, int count);

/// The common step and the four round functions of RFC 1321, 3.4.
[[nodiscard]] std::int32_t md5_cmn(std::int32_t q, std::int32_t a, std::int32_t b, std::int32_t x, int s,
                                   std::int32_t t);
[[nodiscard]] std::int32_t md5_ff(std::int32_t a, std::int32_t b, std::int32_t c, std::int32_t d,
                                  std::int32_t x, int s, std::int32_t t);
[[nodiscard]] std::int32_t md5_gg(std::int32_t a, std::int32_t b, std::int32_t c, std::int32_t d,
                                  std::int32_t x, int s, std::int32_t t);
[[nodiscard]] std::int32_t md5_hh(std::int32_t a, std::int32_t b, std::int32_t c, std::int32_t d,
                                  std::int32_t x, int s, std::int32_t t);
[[nodiscard]] std::int32_t md5_ii(std::int32_t a, std::int32_t b, std::int32_t c, std::int32_t d,
                                  std::int32_t x, int s, std::int32_t t);

}  // namespace sorrel
