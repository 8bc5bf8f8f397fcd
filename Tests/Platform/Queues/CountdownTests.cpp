#include "SorrelFramework/Platform/Queues/Countdown.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "Tests/Support/RecordingQueue.hpp"
#include "Tests/Support/VirtualClock.hpp"

namespace sorrel {
namespace {

TEST(Countdown, lastArrivalRunsThen) {
  int runs = 0;
  const auto countdown = Countdown::from(3, [&runs] { ++runs; });
  countdown->arrive();
  countdown->arrive();
  EXPECT_EQ(runs, 0);
  countdown->arrive();
  EXPECT_EQ(runs, 1);
}

TEST(Countdown, countOfZeroRunsThenAtOnce) {
  int runs = 0;
  const auto countdown = Countdown::from(0, [&runs] { ++runs; });
  EXPECT_EQ(runs, 1);
}

TEST(Countdown, thenSeesWhatAllThreadsWrote) {
  for (int i = 0; i < 200; ++i) {
    std::vector<int> parts(8);
    int sum = 0;
    const auto countdown = Countdown::from(parts.size(), [&] {
      for (const int part : parts) sum += part;
    });
    std::vector<std::thread> threads;
    for (int& part : parts) {
      threads.emplace_back([&part, countdown] {
        part = 1;
        countdown->arrive();
      });
    }
    for (std::thread& thread : threads) thread.join();
    ASSERT_EQ(sum, 8);
  }
}

TEST(Countdown, thenRunsOnItsQueueAlsoAfterARefusal) {
  const test::VirtualClock clock;
  const auto queue = std::make_shared<test::RecordingQueue>();
  queue->refuseNext(2);
  bool isOnQueue = false;
  Countdown::from(
      1, [&] { isOnQueue = queue->isCurrent(); }, queue)
      ->arrive();
  ASSERT_TRUE(test::drain(*queue));
  EXPECT_TRUE(isOnQueue);
}

TEST(Countdown, thenIsFreedWithoutARunIfATaskIsDropped) {
  const auto witness = std::make_shared<int>();
  {
    const auto countdown = Countdown::from(2, [witness] { ++*witness; });
    countdown->arrive();
    EXPECT_EQ(witness.use_count(), 2);
  }
  EXPECT_EQ(*witness, 0);
  EXPECT_EQ(witness.use_count(), 1);
}

TEST(Countdown, thenIsFreedAfterItsRun) {
  const auto witness = std::make_shared<int>();
  const auto countdown = Countdown::from(1, [witness] { ++*witness; });
  countdown->arrive();
  EXPECT_EQ(*witness, 1);
  EXPECT_EQ(witness.use_count(), 1);
}

}  // namespace
}  // namespace sorrel
