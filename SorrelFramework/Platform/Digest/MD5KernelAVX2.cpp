#include "SorrelFramework/Platform/Digest/MD5VectorKernels.hpp"

#if defined(__x86_64__)

#include <immintrin.h>

#include <utility>

#include "SorrelFramework/Platform/Digest/MD5Constants.hpp"

#define SORREL_MD5_TARGET [[gnu::always_inline, gnu::target("avx2")]] inline

namespace sorrel {
namespace {

using Word = __m256i;

SORREL_MD5_TARGET Word add(Word x, Word y) { return _mm256_add_epi32(x, y); }
SORREL_MD5_TARGET Word splat(std::uint32_t value) { return _mm256_set1_epi32(static_cast<int>(value)); }
template <int Count>
SORREL_MD5_TARGET Word rotate(Word x) {
  return _mm256_or_si256(_mm256_slli_epi32(x, Count), _mm256_srli_epi32(x, 32 - Count));
}
SORREL_MD5_TARGET Word plusF(Word sum, Word b, Word c, Word d) {
  return add(sum, _mm256_xor_si256(d, _mm256_and_si256(b, _mm256_xor_si256(c, d))));
}
// The two halves of G have no bit in common; the one without b is ready earlier.
SORREL_MD5_TARGET Word plusG(Word sum, Word b, Word c, Word d) {
  return add(add(sum, _mm256_andnot_si256(d, c)), _mm256_and_si256(b, d));
}
SORREL_MD5_TARGET Word plusH(Word sum, Word b, Word c, Word d) {
  return add(sum, _mm256_xor_si256(b, _mm256_xor_si256(c, d)));
}
SORREL_MD5_TARGET Word plusI(Word sum, Word b, Word c, Word d) {
  const Word notD = _mm256_xor_si256(d, _mm256_set1_epi32(-1));
  return add(sum, _mm256_xor_si256(c, _mm256_or_si256(b, notD)));
}

#include "SorrelFramework/Platform/Digest/MD5Rounds.inc"

/// Rows of eight words, one row for each lane, become vectors of one word of all lanes.
SORREL_MD5_TARGET void transpose(Word rows[8]) {
  Word pairs[8];
  Word fours[8];
  for (int i = 0; i < 8; i += 2) {
    pairs[i] = _mm256_unpacklo_epi32(rows[i], rows[i + 1]);
    pairs[i + 1] = _mm256_unpackhi_epi32(rows[i], rows[i + 1]);
  }
  for (int i = 0; i < 8; i += 4) {
    fours[i] = _mm256_unpacklo_epi64(pairs[i], pairs[i + 2]);
    fours[i + 1] = _mm256_unpackhi_epi64(pairs[i], pairs[i + 2]);
    fours[i + 2] = _mm256_unpacklo_epi64(pairs[i + 1], pairs[i + 3]);
    fours[i + 3] = _mm256_unpackhi_epi64(pairs[i + 1], pairs[i + 3]);
  }
  for (int i = 0; i < 4; ++i) {
    rows[i] = _mm256_permute2x128_si256(fours[i], fours[i + 4], 0x20);
    rows[i + 4] = _mm256_permute2x128_si256(fours[i], fours[i + 4], 0x31);
  }
}

SORREL_MD5_TARGET Word load(const void* from) { return _mm256_loadu_si256(static_cast<const Word*>(from)); }
SORREL_MD5_TARGET void store(void* to, Word value) { _mm256_storeu_si256(static_cast<Word*>(to), value); }

}  // namespace

[[gnu::target("avx2")]] void runMD5AVX2(MD5States& states, const std::uint8_t* const* blocks,
                                        std::size_t count) {
  MD5State state{load(states[0]), load(states[1]), load(states[2]), load(states[3])};
  for (std::size_t at = 0; at < count * kMD5Block; at += kMD5Block) {
    Word words[16];
    for (int lane = 0; lane < 8; ++lane) {
      words[lane] = load(blocks[lane] + at);
      words[lane + 8] = load(blocks[lane] + at + kMD5Block / 2);
    }
    transpose(words);
    transpose(words + 8);
    addBlock(state, words);
  }
  store(states[0], state.a);
  store(states[1], state.b);
  store(states[2], state.c);
  store(states[3], state.d);
}

}  // namespace sorrel

#endif
