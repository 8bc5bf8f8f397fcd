#include "SorrelFramework/Platform/Digest/MD5Kernels.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "SorrelFramework/Platform/Digest/MD5Constants.hpp"
#include "Tests/Support/EachMD5Kernel.hpp"

namespace sorrel::test {
namespace {

std::vector<std::uint8_t> noise(std::size_t count, std::uint32_t seed) {
  std::vector<std::uint8_t> bytes(count);
  for (std::uint8_t& byte : bytes) {
    seed = seed * 1664525 + 1013904223;
    byte = static_cast<std::uint8_t>(seed >> 24);
  }
  return bytes;
}

void reset(MD5States& states) {
  for (std::size_t word = 0; word < 4; ++word) std::ranges::fill(states[word], kMD5InitialState[word]);
}

/// One lane at a time, by the kernel that runs everywhere.
void runPlainly(MD5States& states, const std::uint8_t* const* blocks, std::size_t lanes, std::size_t count) {
  for (std::size_t lane = 0; lane < lanes; ++lane) runMD5Lane(states, lane, blocks[lane], count);
}

TEST(MD5Kernels, theLastRunsEverywhere) {
  ASSERT_FALSE(md5Kernels().empty());
  EXPECT_TRUE(md5Kernels().back().isSupported());
  EXPECT_EQ(md5Kernels().back().lanes, 1U);
}

TEST(MD5Kernels, theBestIsTheFirstThatIsSupported) {
  const auto kernels = md5Kernels();
  const auto* const first =
      std::ranges::find_if(kernels, [](const MD5Kernel& kernel) { return kernel.isSupported(); }).base();
  EXPECT_EQ(&bestMD5Kernel(), first);
}

// RFC 1321, A.5: the empty message is one block of padding.
TEST(MD5Kernels, everyLaneGivesThePublishedStateOfTheEmptyMessage) {
  withEachMD5Kernel([](const MD5Kernel& kernel) {
    const std::vector<std::uint8_t> padding = [] {
      std::vector<std::uint8_t> bytes(kMD5Block);
      bytes[0] = 0x80;
      return bytes;
    }();
    const std::vector<const std::uint8_t*> blocks(kernel.lanes, padding.data());
    MD5States states;
    reset(states);
    kernel.run(states, blocks.data(), 1);
    for (std::size_t lane = 0; lane < kernel.lanes; ++lane) {
      EXPECT_EQ(states[0][lane], 0xd98c1dd4U);
      EXPECT_EQ(states[1][lane], 0x04b2008fU);
      EXPECT_EQ(states[2][lane], 0x980980e9U);
      EXPECT_EQ(states[3][lane], 0x7e42f8ecU);
    }
  });
}

TEST(MD5Kernels, lanesDoNotMixAndBlocksChain) {
  withEachMD5Kernel([](const MD5Kernel& kernel) {
    for (std::size_t count = 0; count < 20; ++count) {
      const auto bytes = noise(kernel.lanes * (count + 1) * kMD5Block + 1, static_cast<std::uint32_t>(count));
      std::vector<const std::uint8_t*> blocks;
      for (std::size_t lane = 0; lane < kernel.lanes; ++lane) {
        blocks.push_back(bytes.data() + 1 + lane * (count + 1) * kMD5Block);  // on no boundary
      }
      MD5States states;
      MD5States wanted;
      reset(states);
      reset(wanted);
      kernel.run(states, blocks.data(), count);
      runPlainly(wanted, blocks.data(), kernel.lanes, count);
      for (std::size_t word = 0; word < 4; ++word) {
        EXPECT_TRUE(std::ranges::equal(states[word], wanted[word])) << count << " blocks, word " << word;
      }
    }
  });
}

}  // namespace
}  // namespace sorrel::test
