#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace sorrel {

inline constexpr std::size_t kMD5Block = 64;
inline constexpr std::size_t kMostMD5Lanes = 16;

/// The running digests of several messages in parallel: word k of lane l is at [k][l].
using MD5States = std::uint32_t[4][kMostMD5Lanes];

/// RFC 1321, 3.3: the state before the first block.
inline constexpr std::array<std::uint32_t, 4> kMD5InitialState = {0x67452301, 0xefcdab89, 0x98badcfe,
                                                                  0x10325476};
/// RFC 1321, 3.4: the table T, 2^32 times |sin(i + 1)|.
inline constexpr std::array<std::uint32_t, 64> kMD5Sines = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

/// The four shifts of a round, and which word of the block its step i uses: (i * factor + start) mod 16.
struct MD5Round {
  std::array<int, 4> shifts;
  int factor;
  int start;
};
inline constexpr std::array<MD5Round, 4> kMD5Rounds = {
    {{{7, 12, 17, 22}, 1, 0}, {{5, 9, 14, 20}, 5, 1}, {{4, 11, 16, 23}, 3, 5}, {{6, 10, 15, 21}, 7, 0}}};

}  // namespace sorrel
