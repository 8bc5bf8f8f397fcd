#include "SorrelFramework/Units/MD5.hpp"

#include <array>
#include <cstddef>
#include <limits>

#include "SorrelFramework/Platform/CheckedMath.hpp"
#include "SorrelFramework/Platform/Fatal.hpp"

namespace sorrel {
namespace {

// RFC 1321, 3.3 and 3.4.
constexpr std::array<std::uint32_t, 4> kInitialState = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};

constexpr std::array<std::uint32_t, 64> kSines = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

using Step = std::int32_t (*)(std::int32_t, std::int32_t, std::int32_t, std::int32_t, std::int32_t, int,
                              std::int32_t);

/// One of the four rounds: its function, its four shifts, and which word of the block step i takes.
struct Round {
  Step step;
  std::array<int, 4> shifts;
  int factor;
  int start;
};
constexpr std::array<Round, 4> kRounds = {{{md5_ff, {7, 12, 17, 22}, 1, 0},
                                           {md5_gg, {5, 9, 14, 20}, 5, 1},
                                           {md5_hh, {4, 11, 16, 23}, 3, 5},
                                           {md5_ii, {6, 10, 15, 21}, 7, 0}}};

std::int32_t asSigned(std::uint32_t bits) { return static_cast<std::int32_t>(bits); }
std::uint32_t asUnsigned(std::int32_t bits) { return static_cast<std::uint32_t>(bits); }

int bitLengthOf(const std::vector<std::uint8_t>& bytes) {
  constexpr std::size_t kMost = std::numeric_limits<int>::max() / 8;
  if (bytes.size() > kMost) fatalStop(kArithmeticOverflow);
  return static_cast<int>(bytes.size() * 8);
}

std::int32_t wordAt(const MD5Words& words, int index) {
  const auto found = words.find(index);
  return unwrap(found == words.end() ? std::nullopt : std::optional(found->second));
}

std::array<std::int32_t, 4> afterRounds(std::array<std::int32_t, 4> state, const MD5Words& words, int block) {
  auto& [a, b, c, d] = state;
  for (int i = 0; i < 64; ++i) {
    const auto step = static_cast<std::size_t>(i);
    const Round& round = kRounds[step / 16];
    const int word = block + (i * round.factor + round.start) % 16;
    const std::int32_t next =
        round.step(a, b, c, d, wordAt(words, word), round.shifts[step % 4], asSigned(kSines[step]));
    a = d;
    d = c;
    c = b;
    b = next;
  }
  return state;
}

}  // namespace

std::string MD5(std::string_view text) { return hex_md5(text); }

std::string hex_md5(std::string_view text) { return rstr2hex(rstr_md5(str2rstr_utf8(text))); }

std::vector<std::uint8_t> str2rstr_utf8(std::string_view text) { return {text.begin(), text.end()}; }

std::vector<std::uint8_t> rstr_md5(const std::vector<std::uint8_t>& bytes) {
  return binl2rstr(binl_md5(rstr2binl(bytes), bitLengthOf(bytes)));
}

std::string rstr2hex(const std::vector<std::uint8_t>& bytes) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0F];
  }
  return text;
}

std::string rstr2tr(const std::vector<std::uint8_t>& bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    if (byte < 0x80) {
      text += static_cast<char>(byte);
    } else {
      text += static_cast<char>(0xC0 | (byte >> 6));
      text += static_cast<char>(0x80 | (byte & 0x3F));
    }
  }
  return text;
}

std::vector<std::int32_t> rstr2binl(const std::vector<std::uint8_t>& bytes) {
  MD5Words words;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    std::int32_t& word = words.try_emplace(words.end(), static_cast<int>(i / 4), 0)->second;
    word = asSigned(asUnsigned(word) | static_cast<std::uint32_t>(bytes[i]) << (i % 4 * 8));
  }
  return dictionary2array(words);
}

std::vector<std::int32_t> dictionary2array(const MD5Words& words) {
  std::vector<std::int32_t> array(words.size(), 0);
  for (const auto& [key, value] : words) {
    const auto index = static_cast<std::size_t>(key);
    if (key < 0 || index >= array.size()) fatalStop("Index out of range");
    array[index] = value;
  }
  return array;
}

std::vector<std::uint8_t> binl2rstr(const std::vector<std::int32_t>& words) {
  std::vector<std::uint8_t> bytes;
  bytes.reserve(words.size() * 4);
  for (const std::int32_t word : words) {
    for (int shift = 0; shift < 32; shift += 8) {
      bytes.push_back(static_cast<std::uint8_t>(zeroFillRightShift(word, shift) & 0xFF));
    }
  }
  return bytes;
}

std::vector<std::int32_t> binl_md5(const std::vector<std::int32_t>& words, int bitLength) {
  if (bitLength < 0) fatalStop(kArithmeticOverflow);
  const int paddedLength = checkedAdd(bitLength, 64);
  MD5Words x;
  for (std::size_t i = 0; i < words.size(); ++i) x.emplace_hint(x.end(), static_cast<int>(i), words[i]);
  const int lastWord = bitLength >> 5;
  x[lastWord] = asSigned(asUnsigned(wordAt(x, lastWord)) | 0x80U << (bitLength % 32));
  x[(zeroFillRightShift(paddedLength, 9) << 4) + 14] = bitLength;

  std::array<std::int32_t, 4> state{};
  for (std::size_t i = 0; i < state.size(); ++i) state[i] = asSigned(kInitialState[i]);
  const int end = length(x);
  for (int block = 0; block < end; block += 16) {
    const auto next = afterRounds(state, x, block);
    for (std::size_t i = 0; i < state.size(); ++i) state[i] = safe_add(state[i], next[i]);
  }
  return {state.begin(), state.end()};
}

int length(const MD5Words& words) { return words.empty() ? 1 : words.rbegin()->first + 1; }

std::int32_t unwrap(std::optional<std::int32_t> value, std::int32_t fallback) {
  return value.value_or(fallback);
}

std::int32_t zeroFillRightShift(std::int32_t value, int count) {
  return count >= 32 ? 0 : asSigned(asUnsigned(value) >> count);
}

std::int32_t safe_add(std::int32_t x, std::int32_t y) { return asSigned(asUnsigned(x) + asUnsigned(y)); }

std::int32_t bit_rol(std::int32_t value, int count) {
  const std::uint32_t left = count >= 32 ? 0 : asUnsigned(value) << count;
  return asSigned(left | asUnsigned(zeroFillRightShift(value, 32 - count)));
}

std::int32_t md5_cmn(std::int32_t q, std::int32_t a, std::int32_t b, std::int32_t x, int s, std::int32_t t) {
  return safe_add(bit_rol(safe_add(safe_add(a, q), safe_add(x, t)), s), b);
}

std::int32_t md5_ff(std::int32_t a, std::int32_t b, std::int32_t c, std::int32_t d, std::int32_t x, int s,
                    std::int32_t t) {
  return md5_cmn((b & c) | (~b & d), a, b, x, s, t);
}

std::int32_t md5_gg(std::int32_t a, std::int32_t b, std::int32_t c, std::int32_t d, std::int32_t x, int s,
                    std::int32_t t) {
  return md5_cmn((b & d) | (c & ~d), a, b, x, s, t);
}

std::int32_t md5_hh(std::int32_t a, std::int32_t b, std::int32_t c, std::int32_t d, std::int32_t x, int s,
                    std::int32_t t) {
  return md5_cmn(b ^ c ^ d, a, b, x, s, t);
}

std::int32_t md5_ii(std::int32_t a, std::int32_t b, std::int32_t c, std::int32_t d, std::int32_t x, int s,
                    std::int32_t t) {
  return md5_cmn(c ^ (b | ~d), a, b, x, s, t);
}

}  // namespace sorrel
