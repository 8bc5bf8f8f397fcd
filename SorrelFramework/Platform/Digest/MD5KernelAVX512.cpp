#include "SorrelFramework/Platform/Digest/MD5VectorKernels.hpp"

#if defined(__x86_64__)

// GCC 12 mistakes vectors that its own header leaves undefined on purpose for uninitialized ones (bug
// 105593).
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include <immintrin.h>

#include <utility>

#include "SorrelFramework/Platform/Digest/MD5Constants.hpp"

#define SORREL_MD5_TARGET [[gnu::always_inline, gnu::target("avx512f")]] inline

namespace sorrel {
namespace {

using Word = __m512i;

SORREL_MD5_TARGET Word add(Word x, Word y) { return _mm512_add_epi32(x, y); }
SORREL_MD5_TARGET Word splat(std::uint32_t value) { return _mm512_set1_epi32(static_cast<int>(value)); }
template <int Count>
SORREL_MD5_TARGET Word rotate(Word x) {
  return _mm512_rol_epi32(x, Count);
}
// Each function of three words is one instruction, given by its truth table: bit 4b + 2c + d.
SORREL_MD5_TARGET Word plusF(Word sum, Word b, Word c, Word d) {
  return add(sum, _mm512_ternarylogic_epi32(b, c, d, 0xCA));
}
SORREL_MD5_TARGET Word plusG(Word sum, Word b, Word c, Word d) {
  return add(sum, _mm512_ternarylogic_epi32(b, c, d, 0xE4));
}
SORREL_MD5_TARGET Word plusH(Word sum, Word b, Word c, Word d) {
  return add(sum, _mm512_ternarylogic_epi32(b, c, d, 0x96));
}
SORREL_MD5_TARGET Word plusI(Word sum, Word b, Word c, Word d) {
  return add(sum, _mm512_ternarylogic_epi32(b, c, d, 0x39));
}

#include "SorrelFramework/Platform/Digest/MD5Rounds.inc"

/// Columns of the same quarter of 16 rows, gathered from four vectors of 128-bit pieces.
SORREL_MD5_TARGET void gather(const Word from[16], int column, Word words[16]) {
  const Word lowEven = _mm512_shuffle_i32x4(from[column], from[column + 4], 0x88);
  const Word lowOdd = _mm512_shuffle_i32x4(from[column], from[column + 4], 0xDD);
  const Word highEven = _mm512_shuffle_i32x4(from[column + 8], from[column + 12], 0x88);
  const Word highOdd = _mm512_shuffle_i32x4(from[column + 8], from[column + 12], 0xDD);
  words[column] = _mm512_shuffle_i32x4(lowEven, highEven, 0x88);
  words[column + 4] = _mm512_shuffle_i32x4(lowOdd, highOdd, 0x88);
  words[column + 8] = _mm512_shuffle_i32x4(lowEven, highEven, 0xDD);
  words[column + 12] = _mm512_shuffle_i32x4(lowOdd, highOdd, 0xDD);
}

/// Rows of 16 words, one row for each lane, become vectors of one word of all lanes.
SORREL_MD5_TARGET void transpose(Word words[16]) {
  Word pairs[16];
  Word fours[16];
  for (int i = 0; i < 16; i += 2) {
    pairs[i] = _mm512_unpacklo_epi32(words[i], words[i + 1]);
    pairs[i + 1] = _mm512_unpackhi_epi32(words[i], words[i + 1]);
  }
  for (int i = 0; i < 16; i += 4) {
    fours[i] = _mm512_unpacklo_epi64(pairs[i], pairs[i + 2]);
    fours[i + 1] = _mm512_unpackhi_epi64(pairs[i], pairs[i + 2]);
    fours[i + 2] = _mm512_unpacklo_epi64(pairs[i + 1], pairs[i + 3]);
    fours[i + 3] = _mm512_unpackhi_epi64(pairs[i + 1], pairs[i + 3]);
  }
  for (int column = 0; column < 4; ++column) gather(fours, column, words);
}

}  // namespace

[[gnu::target("avx512f")]] void runMD5AVX512(MD5States& states, const std::uint8_t* const* blocks,
                                             std::size_t count) {
  MD5State state{_mm512_loadu_si512(states[0]), _mm512_loadu_si512(states[1]), _mm512_loadu_si512(states[2]),
                 _mm512_loadu_si512(states[3])};
  for (std::size_t at = 0; at < count * kMD5Block; at += kMD5Block) {
    Word words[16];
    for (int lane = 0; lane < 16; ++lane) words[lane] = _mm512_loadu_si512(blocks[lane] + at);
    transpose(words);
    addBlock(state, words);
  }
  _mm512_storeu_si512(states[0], state.a);
  _mm512_storeu_si512(states[1], state.b);
  _mm512_storeu_si512(states[2], state.c);
  _mm512_storeu_si512(states[3], state.d);
}

}  // namespace sorrel

#endif
