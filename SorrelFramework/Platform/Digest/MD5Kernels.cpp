#include "SorrelFramework/Platform/Digest/MD5Kernels.hpp"

#include <algorithm>
#include <bit>
#include <utility>

#include "SorrelFramework/Platform/Digest/MD5Constants.hpp"
#include "SorrelFramework/Platform/Digest/MD5VectorKernels.hpp"

namespace sorrel {
namespace {

#define SORREL_MD5_TARGET [[gnu::always_inline]] inline

using Word = std::uint32_t;
SORREL_MD5_TARGET Word add(Word x, Word y) { return x + y; }
SORREL_MD5_TARGET Word splat(std::uint32_t value) { return value; }
template <int Count>
SORREL_MD5_TARGET Word rotate(Word x) {
  return std::rotl(x, Count);
}
SORREL_MD5_TARGET Word plusF(Word sum, Word b, Word c, Word d) { return sum + (d ^ (b & (c ^ d))); }
// The two halves of G have no bit in common; the one without b is ready earlier.
SORREL_MD5_TARGET Word plusG(Word sum, Word b, Word c, Word d) { return sum + (c & ~d) + (b & d); }
SORREL_MD5_TARGET Word plusH(Word sum, Word b, Word c, Word d) { return sum + (b ^ (c ^ d)); }
SORREL_MD5_TARGET Word plusI(Word sum, Word b, Word c, Word d) { return sum + (c ^ (b | ~d)); }

#include "SorrelFramework/Platform/Digest/MD5Rounds.inc"

Word wordAt(const std::uint8_t* bytes) {
  return Word{bytes[0]} | Word{bytes[1]} << 8 | Word{bytes[2]} << 16 | Word{bytes[3]} << 24;
}

bool isAlwaysSupported() { return true; }
void runOneLane(MD5States& states, const std::uint8_t* const* blocks, std::size_t count) {
  runMD5Lane(states, 0, blocks[0], count);
}

#if defined(__x86_64__)
bool hasAVX512() { return static_cast<bool>(__builtin_cpu_supports("avx512f")); }
bool hasAVX2() { return static_cast<bool>(__builtin_cpu_supports("avx2")); }
#endif

constexpr MD5Kernel kKernels[] = {
#if defined(__x86_64__)
    {"AVX-512", 16, 3, hasAVX512, runMD5AVX512},
    {"AVX2", 8, 3, hasAVX2, runMD5AVX2},
#endif
    {"scalar", 1, 1, isAlwaysSupported, runOneLane},
};

}  // namespace

std::span<const MD5Kernel> md5Kernels() { return kKernels; }

const MD5Kernel& bestMD5Kernel() {
  static const MD5Kernel& best =
      *std::ranges::find_if(kKernels, [](const MD5Kernel& kernel) { return kernel.isSupported(); });
  return best;
}

void runMD5Lane(MD5States& states, std::size_t lane, const std::uint8_t* blocks, std::size_t count) {
  MD5State state{states[0][lane], states[1][lane], states[2][lane], states[3][lane]};
  for (; count > 0; --count, blocks += kMD5Block) {
    Word words[16];
    for (std::size_t i = 0; i < 16; ++i) words[i] = wordAt(blocks + 4 * i);
    addBlock(state, words);
  }
  states[0][lane] = state.a;
  states[1][lane] = state.b;
  states[2][lane] = state.c;
  states[3][lane] = state.d;
}

}  // namespace sorrel
