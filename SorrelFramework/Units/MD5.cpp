#include "SorrelFramework/Units/MD5.hpp"

#include <array>
#include <cstddef>
#include <limits>

#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Platform/Base/Fatal.hpp"
#include "SorrelFramework/Platform/Digest/MD5Constants.hpp"

namespace sorrel {
namespace {

using Step = std::int32_t (*)(std::int32_t, std::int32_t, std::int32_t, std::int32_t, std::int32_t, int,
                              std::int32_t);

/// The functions of the four rounds.
constexpr std::array<Step, 4> kSteps = {md5_ff, md5_gg, md5_hh, md5_ii};

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
    const MD5Round& round = kMD5Rounds[step / 16];
    const int word = block + (i * round.factor + round.start) % 16;
    const std::int32_t next =
        kSteps[step / 16](a, b, c, d, wordAt(words, word), round.shifts[step % 4], asSigned(kMD5Sines[step]));
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
  for (std::size_t i = 0; i < state.size(); ++i) state[i] = asSigned(kMD5InitialState[i]);
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
