#include "Helper/FileShredder.hpp"

#include <sys/random.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>

namespace sorrel::helper {
namespace {

using Block = FileOverwriter::Block;

std::mt19937_64 seededGenerator() {
  std::uint64_t seed = 0;
  if (::getrandom(&seed, sizeof seed, 0) != sizeof seed) seed = std::mt19937_64::default_seed;
  return std::mt19937_64(seed);
}

void fillRandomly(Block block, std::mt19937_64& generator) {
  for (std::size_t at = 0; at < block.size(); at += sizeof(std::uint64_t)) {
    const std::uint64_t word = generator();
    std::memcpy(block.data() + at, &word, std::min(sizeof word, block.size() - at));
  }
}

}  // namespace

int FileShredder::run() {
  const auto fillWith = [](unsigned char byte) {
    return [byte](Block block) { std::ranges::fill(block, byte); };
  };
  std::mt19937_64 generator = seededGenerator();
  const FileOverwriter::Fill passes[] = {
      fillWith(0xFF), [&generator](Block block) { fillRandomly(block, generator); }, fillWith(0x00)};
  for (const FileOverwriter::Fill& fill : passes) {
    if (const int error = overwriter_.write(fill)) return error;
  }
  return overwriter_.verify(0x00);
}

}  // namespace sorrel::helper
