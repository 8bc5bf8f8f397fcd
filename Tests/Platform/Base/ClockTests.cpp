#include "SorrelFramework/Platform/Base/Clock.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <vector>

#include "Tests/Support/VirtualClock.hpp"

namespace sorrel {
namespace {

TEST(Clock, waitTakesAtLeastTheTimeAskedFor) {
  const auto start = std::chrono::steady_clock::now();
  waitMicroseconds(2'000);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::microseconds(2'000));
}

TEST(Clock, replacedWaitGetsTheMicrosecondsAndTakesNoTime) {
  const test::VirtualClock clock;
  waitMicroseconds(500'000);
  waitMicroseconds(3'600'000'000);
  EXPECT_EQ(clock.waits(), (std::vector<std::uint64_t>{500'000, 3'600'000'000}));
}

TEST(Clock, emptyReplacementBringsTheRealWaitBack) {
  int calls = 0;
  setWaitForTesting([&](std::uint64_t) { ++calls; });
  waitMicroseconds(1);
  setWaitForTesting(nullptr);
  waitMicroseconds(1);
  EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace sorrel
