#include "SorrelFramework/Platform/Base/CallGuard.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <latch>
#include <memory>
#include <string>
#include <thread>

namespace sorrel {
namespace {

TEST(CallGuard, callbackRunsWithItsArgumentsWhileTheGuardIsThere) {
  const CallGuard guard;
  std::string seen;
  const std::function<void(int, const std::string&)> call =
      guard.guarded([&seen](int number, const std::string& text) { seen = text + std::to_string(number); });
  call(7, "a");
  EXPECT_EQ(seen, "a7");
}

TEST(CallGuard, callbackDoesNothingAfterTheGuard) {
  auto guard = std::make_unique<CallGuard>();
  int calls = 0;
  const auto call = guard->guarded([&calls] { ++calls; });
  call();
  guard.reset();
  call();
  EXPECT_EQ(calls, 1);
}

TEST(CallGuard, guardMayEndInsideItsCallback) {
  auto guard = std::make_unique<CallGuard>();
  int calls = 0;
  const std::function<void()> call = guard->guarded([&] {
    ++calls;
    guard.reset();
  });
  call();
  call();
  EXPECT_EQ(calls, 1);
}

TEST(CallGuard, endWaitsForACallbackOnAnotherThread) {
  for (int round = 0; round < 100; ++round) {
    auto guard = std::make_unique<CallGuard>();
    std::latch begun(1);
    std::atomic<bool> isGone{false};
    std::atomic<bool> ranAfterTheEnd{false};
    std::thread other([&, call = guard->guarded([&] {
      begun.count_down();
      for (int i = 0; i < 1000; ++i) ranAfterTheEnd = ranAfterTheEnd || isGone;
    })] { call(); });
    begun.wait();
    guard.reset();
    isGone = true;
    other.join();
    ASSERT_FALSE(ranAfterTheEnd);
  }
}

}  // namespace
}  // namespace sorrel
