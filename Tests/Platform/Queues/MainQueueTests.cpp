#include "SorrelFramework/Platform/Queues/MainQueue.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "Tests/Support/MainLoop.hpp"

namespace sorrel {
namespace {

using std::chrono::milliseconds;
using test::drainMainQueue;
using test::runMainLoopUntil;

TEST(MainQueue, runsTasksInTheOrderOfTheirSubmission) {
  std::vector<int> order;
  for (int i = 0; i < 5'000; ++i) MainQueue::post([&order, i] { order.push_back(i); });
  ASSERT_TRUE(drainMainQueue());
  ASSERT_EQ(order.size(), 5'000U);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST(MainQueue, neverRunsATaskInsidePost) {
  bool ran = false;
  MainQueue::post([&] { ran = true; });
  EXPECT_FALSE(ran);
  ASSERT_TRUE(drainMainQueue());
  EXPECT_TRUE(ran);
}

TEST(MainQueue, runsTasksOfOtherThreadsOnTheThreadOfTheLoop) {
  std::optional<std::thread::id> where;
  std::jthread poster([&] { MainQueue::post([&] { where = std::this_thread::get_id(); }); });
  ASSERT_TRUE(runMainLoopUntil([&] { return where.has_value(); }));
  EXPECT_EQ(where, std::this_thread::get_id());
}

TEST(MainQueue, taskPostedByATaskRunsAfterThoseThatWait) {
  std::vector<int> order;
  MainQueue::post([&] {
    MainQueue::post([&] { order.push_back(3); });
    order.push_back(1);
  });
  MainQueue::post([&] { order.push_back(2); });
  ASSERT_TRUE(runMainLoopUntil([&] { return order.size() == 3; }));
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST(MainQueue, nestedLoopRunsTheRestInOrder) {
  std::vector<int> order;
  MainQueue::post([&] {
    order.push_back(1);
    EXPECT_TRUE(drainMainQueue());
    order.push_back(4);
  });
  MainQueue::post([&] { order.push_back(2); });
  MainQueue::post([&] { order.push_back(3); });
  ASSERT_TRUE(runMainLoopUntil([&] { return order.size() == 4; }));
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4}));
}

TEST(MainQueue, emptyTaskIsIgnored) {
  MainQueue::post(nullptr);
  EXPECT_TRUE(drainMainQueue());
}

TEST(MainQueue, isCurrentOnTheThreadOfTheLoopOnly) {
  EXPECT_TRUE(MainQueue::isCurrent());
  bool other = true;
  std::jthread([&] { other = MainQueue::isCurrent(); }).join();
  EXPECT_FALSE(other);
  bool inTask = false;
  MainQueue::post([&] { inTask = MainQueue::isCurrent(); });
  ASSERT_TRUE(drainMainQueue());
  EXPECT_TRUE(inTask);
}

TEST(MainQueue, isNotCurrentOnTheFirstThreadWhileAnotherRunsTheLoop) {
  std::atomic<bool> running{false};
  bool there = false;
  MainQueue::post([&] {
    there = MainQueue::isCurrent();
    running = true;
    running.notify_all();
  });
  std::jthread loop([] { MainQueue::run(); });
  running.wait(false);
  EXPECT_FALSE(MainQueue::isCurrent());
  MainQueue::quit();
  loop.join();
  EXPECT_TRUE(there);
}

TEST(MainQueue, runEndsWithQuitOfAnotherThread) {
  bool ran = false;
  std::jthread other([&] {
    MainQueue::post([&] { ran = true; });
    MainQueue::quit();
  });
  MainQueue::run();
  EXPECT_TRUE(ran);
}

TEST(MainQueue, quitBeforeRunEndsItAfterTheTasksThatWait) {
  bool ran = false;
  MainQueue::post([&] { ran = true; });
  MainQueue::quit();
  MainQueue::run();
  EXPECT_TRUE(ran);
}

TEST(MainQueue, quitEndsTheInnermostLoop) {
  std::vector<int> order;
  MainQueue::post([&] {
    MainQueue::quit();
    MainQueue::run();
    order.push_back(1);
    MainQueue::post([&] {
      order.push_back(2);
      MainQueue::quit();
    });
  });
  MainQueue::run();
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST(MainQueue, runUntilAnswersFalseWhenTheTimeIsOver) {
  EXPECT_FALSE(MainQueue::runUntil([] { return false; }, milliseconds(1)));
}

TEST(MainQueue, runUntilTestsTheConditionEvenWithoutTime) {
  EXPECT_TRUE(MainQueue::runUntil([] { return true; }, milliseconds(0)));
}

TEST(MainQueue, runUntilSeesAConditionThatChangesWithoutAnEvent) {
  std::atomic<bool> changed{false};
  std::jthread other([&] { changed = true; });
  EXPECT_TRUE(runMainLoopUntil([&] { return changed.load(); }));
}

TEST(MainTimer, ticksAgainAndAgainOnTheThreadOfTheLoop) {
  int ticks = 0;
  std::thread::id where;
  const MainTimer timer(milliseconds(1), [&] {
    ++ticks;
    where = std::this_thread::get_id();
  });
  EXPECT_EQ(ticks, 0);
  ASSERT_TRUE(runMainLoopUntil([&] { return ticks >= 3; }));
  EXPECT_EQ(where, std::this_thread::get_id());
}

TEST(MainTimer, doesNotTickAfterInvalidate) {
  int ticks = 0;
  int later = 0;
  MainTimer timer(milliseconds(1), [&] { ++ticks; });
  ASSERT_TRUE(runMainLoopUntil([&] { return ticks >= 1; }));
  timer.invalidate();
  timer.invalidate();
  const int before = ticks;
  const MainTimer other(milliseconds(1), [&] { ++later; });
  ASSERT_TRUE(runMainLoopUntil([&] { return later >= 5; }));
  EXPECT_EQ(ticks, before);
}

TEST(MainTimer, mayBeInvalidatedInsideItsTick) {
  int ticks = 0;
  int later = 0;
  std::unique_ptr<MainTimer> timer;
  timer = std::make_unique<MainTimer>(milliseconds(1), [&] {
    ++ticks;
    timer->invalidate();
  });
  const MainTimer other(milliseconds(1), [&] { ++later; });
  ASSERT_TRUE(runMainLoopUntil([&] { return later >= 5; }));
  EXPECT_EQ(ticks, 1);
}

TEST(MainTimer, mayGoAwayInsideItsTick) {
  int ticks = 0;
  int later = 0;
  std::unique_ptr<MainTimer> timer;
  auto held = std::make_shared<int>(5);
  const std::weak_ptr<int> watch = held;
  timer = std::make_unique<MainTimer>(milliseconds(1), [&, held = std::move(held)] {
    timer.reset();
    ticks += *held - 4;  // objects held by the tick live as long as the tick runs
  });
  const MainTimer other(milliseconds(1), [&] { ++later; });
  ASSERT_TRUE(runMainLoopUntil([&] { return later >= 5; }));
  EXPECT_EQ(ticks, 1);
  EXPECT_TRUE(watch.expired());
}

TEST(MainTimer, goesAwayOnAnotherThread) {
  std::atomic<int> ticks{0};
  int later = 0;
  auto timer = std::make_unique<MainTimer>(milliseconds(1), [&] { ++ticks; });
  ASSERT_TRUE(runMainLoopUntil([&] { return ticks >= 1; }));
  std::jthread([&] { timer.reset(); }).join();
  const int before = ticks;
  const MainTimer other(milliseconds(1), [&] { ++later; });
  ASSERT_TRUE(runMainLoopUntil([&] { return later >= 3; }));
  EXPECT_EQ(ticks, before);
}

TEST(MainTimer, startsOnAnyThread) {
  std::atomic<int> ticks{0};
  std::unique_ptr<MainTimer> timer;
  std::jthread([&] { timer = std::make_unique<MainTimer>(milliseconds(1), [&] { ++ticks; }); }).join();
  EXPECT_TRUE(runMainLoopUntil([&] { return ticks >= 1; }));
}

TEST(MainQueueRunUntil, aLimitOfZeroRunsWhatIsReady) {
  bool hasRun = false;
  MainQueue::post([&hasRun] { hasRun = true; });
  EXPECT_TRUE(MainQueue::runUntil([&hasRun] { return hasRun; }, std::chrono::milliseconds(0)));
  EXPECT_FALSE(MainQueue::runUntil([] { return false; }, std::chrono::milliseconds(0)));
}

}  // namespace
}  // namespace sorrel
