#include "SorrelFramework/Platform/Base/CheckedMath.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <limits>

namespace sorrel {
namespace {

constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();

class CheckedMath : public testing::Test {
 protected:
  CheckedMath() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(CheckedMath, sumsUpToTheLimitsAreExact) {
  EXPECT_EQ(checkedAdd<std::int64_t>(2, 3), 5);
  EXPECT_EQ(checkedAdd<std::int64_t>(kMost - 1, 1), kMost);
  EXPECT_EQ(checkedAdd<std::int64_t>(kLeast, kMost), -1);
  static_assert(checkedAdd(40, 2) == 42);
}

TEST_F(CheckedMath, overflowUpwardsStops) {
  EXPECT_EXIT((void)checkedAdd<std::int64_t>(kMost, 1), testing::KilledBySignal(SIGABRT),
              "^Arithmetic overflow\n$");
}

TEST_F(CheckedMath, overflowDownwardsStops) {
  EXPECT_EXIT((void)checkedAdd<std::int64_t>(kLeast, -1), testing::KilledBySignal(SIGABRT),
              "^Arithmetic overflow\n$");
}

TEST_F(CheckedMath, limitIsThatOfTheType) {
  EXPECT_EXIT((void)checkedAdd<std::int32_t>(std::numeric_limits<std::int32_t>::max(), 1),
              testing::KilledBySignal(SIGABRT), "Arithmetic overflow");
  EXPECT_EXIT((void)checkedAdd<std::uint32_t>(std::numeric_limits<std::uint32_t>::max(), 1),
              testing::KilledBySignal(SIGABRT), "Arithmetic overflow");
}

}  // namespace
}  // namespace sorrel
