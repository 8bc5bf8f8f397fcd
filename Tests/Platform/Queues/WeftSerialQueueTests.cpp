#include "SorrelFramework/Platform/Queues/WeftSerialQueue.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <future>
#include <latch>
#include <memory>
#include <optional>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/RecordingQueue.hpp"
#include "Tests/Support/VirtualClock.hpp"

namespace sorrel {
namespace {

using test::drain;
using test::RecordingQueue;
using test::VirtualClock;

void neverFails(WeftRunError error) { ADD_FAILURE() << "refused with " << static_cast<int>(error); }

TEST(WeftSerialQueue, shutDownHasOrdinalFour) {
  EXPECT_EQ(static_cast<int>(WeftRunError::ShutDown), 4);
  EXPECT_EQ(static_cast<int>(WeftRunError::Unknown), 5);
}

TEST(WeftSerialQueue, runsTasksInTheOrderOfTheirSubmission) {
  std::vector<int> order;
  {
    WeftSerialQueue queue(WeftQOS::Default);
    for (int i = 0; i < 2'000; ++i) queue.submit([&order, i] { order.push_back(i); }, neverFails);
  }
  ASSERT_EQ(order.size(), 2'000U);
  for (int i = 0; i < 2'000; ++i) EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
}

TEST(WeftSerialQueue, keepsTheOrderOfEachSubmittingThread) {
  std::array<std::vector<int>, 4> seen;
  {
    WeftSerialQueue queue(WeftQOS::Default);
    std::vector<std::jthread> threads;
    threads.reserve(seen.size());
    for (auto& list : seen) {
      threads.emplace_back([&queue, &list] {
        for (int i = 0; i < 500; ++i) queue.submit([&list, i] { list.push_back(i); }, neverFails);
      });
    }
    threads.clear();
  }
  for (const auto& list : seen) {
    EXPECT_EQ(list.size(), 500U);
    EXPECT_TRUE(std::is_sorted(list.begin(), list.end()));
  }
}

TEST(WeftSerialQueue, runsOneTaskAtATime) {
  std::atomic<int> inside{0};
  std::atomic<int> most{0};
  {
    WeftSerialQueue queue(WeftQOS::Default);
    std::vector<std::jthread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&] {
        for (int i = 0; i < 200; ++i) {
          queue.submit(
              [&] {
                most = std::max(most.load(), ++inside);
                --inside;
              },
              neverFails);
        }
      });
    }
    threads.clear();
  }
  EXPECT_EQ(most, 1);
}

TEST(WeftSerialQueue, destructorRunsWhatWasSubmittedBefore) {
  int ran = 0;
  std::latch start(1);
  {
    WeftSerialQueue queue(WeftQOS::Utility);
    queue.submit([&] { start.wait(); }, neverFails);
    for (int i = 0; i < 50; ++i) queue.submit([&] { ++ran; }, neverFails);
    start.count_down();
  }
  EXPECT_EQ(ran, 50);
}

TEST(WeftSerialQueue, mayGoAwayInsideItsOwnTask) {
  auto queue = std::make_shared<WeftSerialQueue>(WeftQOS::Default);
  std::promise<int> last;
  auto result = last.get_future();
  std::latch handedOver(1);
  queue->submit(
      [&handedOver, &queue] {
        handedOver.wait();
        queue.reset();
      },
      neverFails);
  queue->submit([&last] { last.set_value(42); }, neverFails);
  handedOver.count_down();
  ASSERT_EQ(result.wait_for(test::kPatience), std::future_status::ready);
  EXPECT_EQ(result.get(), 42);
}

TEST(WeftSerialQueue, unusedQueueGoesAwayWithoutAThread) {
  std::optional<WeftSerialQueue> queue(std::in_place, WeftQOS::Background);
  queue.reset();
  EXPECT_FALSE(queue.has_value());
}

TEST(WeftSerialQueue, taskMaySubmitToItsOwnQueue) {
  WeftSerialQueue queue(WeftQOS::Default);
  std::vector<int> order;
  std::latch both(1);
  queue.submit(
      [&] {
        queue.submit(
            [&] {
              order.push_back(2);
              both.count_down();
            },
            neverFails);
        order.push_back(1);
      },
      neverFails);
  both.wait();
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST(WeftSerialQueue, isCurrentOnlyInItsOwnTasks) {
  WeftSerialQueue queue(WeftQOS::Default);
  WeftSerialQueue other(WeftQOS::Default);
  std::promise<std::pair<bool, bool>> inside;
  queue.submit([&] { inside.set_value({queue.isCurrent(), other.isCurrent()}); }, neverFails);
  EXPECT_EQ(inside.get_future().get(), (std::pair{true, false}));
  EXPECT_FALSE(queue.isCurrent());
}

TEST(WeftSerialQueue, refusesWithShutDownAfterShutDownOnTheCallingThread) {
  WeftSerialQueue queue(WeftQOS::Default);
  queue.shutDown();
  std::optional<WeftRunError> error;
  std::thread::id thread;
  queue.submit([] { ADD_FAILURE() << "taken"; },
               [&](WeftRunError refused) {
                 error = refused;
                 thread = std::this_thread::get_id();
               });
  EXPECT_EQ(error, WeftRunError::ShutDown);
  EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST(WeftSerialQueue, shutDownStillRunsWhatWasTaken) {
  int ran = 0;
  {
    WeftSerialQueue queue(WeftQOS::Default);
    std::latch start(1);
    queue.submit([&] { start.wait(); }, neverFails);
    queue.submit([&] { ++ran; }, neverFails);
    queue.shutDown();
    queue.shutDown();
    start.count_down();
  }
  EXPECT_EQ(ran, 1);
}

TEST(WeftSerialQueue, refusalWithoutAFailureCallbackIsSilent) {
  WeftSerialQueue queue(WeftQOS::Default);
  queue.shutDown();
  bool ran = false;
  queue.submit([&] { ran = true; }, nullptr);
  EXPECT_FALSE(ran);
}

TEST(WeftSerialQueue, freesWhatATaskHoldsOnTheQueue) {
  struct Holder {
    explicit Holder(const WeftSerialQueue& owner) : queue(owner) {}
    ~Holder() { freed->set_value(queue.isCurrent()); }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    const WeftSerialQueue& queue;
    std::shared_ptr<std::promise<bool>> freed = std::make_shared<std::promise<bool>>();
  };
  const auto queue = std::make_shared<WeftSerialQueue>(WeftQOS::Default);
  auto holder = std::make_shared<Holder>(*queue);
  auto freed = holder->freed->get_future();
  submitWithRetry(queue, [holder = std::move(holder)] {});
  EXPECT_TRUE(freed.get());
}

TEST(submitWithRetry, runsATaskThatIsTakenAtOnceWithoutWaiting) {
  const VirtualClock clock;
  const auto queue = std::make_shared<RecordingQueue>();
  std::atomic<int> ran{0};
  submitWithRetry(queue, [&] { ++ran; });
  EXPECT_TRUE(drain(*queue));
  EXPECT_EQ(ran, 1);
  EXPECT_TRUE(clock.waits().empty());
}

TEST(submitWithRetry, waitsHalfASecondAfterEachRefusal) {
  const VirtualClock clock;
  const auto queue = std::make_shared<RecordingQueue>();
  queue->refuseNext(3);
  std::atomic<int> ran{0};
  submitWithRetry(queue, [&] { ++ran; });
  EXPECT_TRUE(drain(*queue));
  EXPECT_EQ(ran, 1);
  EXPECT_EQ(queue->refused(), 3U);
  EXPECT_EQ(clock.waits(), (std::vector<std::uint64_t>(3, 500'000)));
}

TEST(submitWithRetry, retriesAfterEveryErrorButShutDown) {
  for (const auto error : {WeftRunError::QueueFull, WeftRunError::Suspended, WeftRunError::OutOfMemory,
                           WeftRunError::NoThread, WeftRunError::Unknown}) {
    const VirtualClock clock;
    const auto queue = std::make_shared<RecordingQueue>();
    queue->refuseNext(1, error);
    std::atomic<int> ran{0};
    submitWithRetry(queue, [&] { ++ran; });
    EXPECT_TRUE(drain(*queue));
    EXPECT_EQ(ran, 1) << static_cast<int>(error);
  }
}

TEST(submitWithRetry, givesUpOnShutDown) {
  const VirtualClock clock;
  const auto queue = std::make_shared<RecordingQueue>();
  queue->refuseAll(WeftRunError::ShutDown);
  auto held = std::make_shared<int>(0);
  const std::weak_ptr<int> watch = held;
  submitWithRetry(queue, [held = std::move(held)] { ADD_FAILURE() << "ran"; });
  EXPECT_EQ(queue->refused(), 1U);
  EXPECT_TRUE(clock.waits().empty());
  EXPECT_TRUE(watch.expired());
}

TEST(submitWithRetry, needsNoStackForManyRefusals) {
  const VirtualClock clock;
  const auto queue = std::make_shared<RecordingQueue>();
  constexpr std::size_t kRefusals = 200'000;
  queue->refuseNext(kRefusals);
  std::atomic<int> ran{0};
  submitWithRetry(queue, [&] { ++ran; });
  EXPECT_TRUE(drain(*queue));
  EXPECT_EQ(ran, 1);
  EXPECT_EQ(clock.waits().size(), kRefusals);
}

TEST(submitWithRetry, submitsAgainWhenTheQueueTellsItsRefusalLater) {
  const VirtualClock clock;
  const auto queue = std::make_shared<RecordingQueue>();
  queue->holdFailures();
  queue->refuseNext(2);
  std::atomic<int> ran{0};
  submitWithRetry(queue, [&] { ++ran; });
  EXPECT_TRUE(clock.waits().empty());
  EXPECT_EQ(queue->deliverFailures(), 1U);
  EXPECT_EQ(queue->deliverFailures(), 1U);
  EXPECT_EQ(queue->deliverFailures(), 0U);
  EXPECT_TRUE(drain(*queue));
  EXPECT_EQ(ran, 1);
  EXPECT_EQ(clock.waits(), (std::vector<std::uint64_t>{500'000, 500'000}));
}

TEST(submitWithRetry, runsEachTaskOnceAndInOrderWhateverIsRefused) {
  const VirtualClock clock;
  std::mt19937 random(7);
  for (int pattern = 0; pattern < 300; ++pattern) {
    const auto queue = std::make_shared<RecordingQueue>();
    std::vector<int> ran;
    std::vector<int> expected;
    for (int task = 0; task < 20; ++task) {
      const bool dropped = random() % 20 == 0;
      if (dropped) {
        queue->refuseNext(1, WeftRunError::ShutDown);
      } else {
        queue->refuseNext(random() % 10 < 3 ? random() % 40 : 0, WeftRunError::Suspended);
        expected.push_back(task);
      }
      submitWithRetry(queue, [&ran, task] { ran.push_back(task); });
    }
    ASSERT_TRUE(drain(*queue));
    EXPECT_EQ(ran, expected) << pattern;
  }
}

TEST(submitWithRetry, givesUpWhenShutDownIsToldLater) {
  const VirtualClock clock;
  const auto queue = std::make_shared<RecordingQueue>();
  queue->holdFailures();
  queue->refuseNext(1, WeftRunError::ShutDown);
  submitWithRetry(queue, [] { ADD_FAILURE() << "ran"; });
  EXPECT_EQ(queue->deliverFailures(), 1U);
  EXPECT_EQ(queue->accepted(), 0U);
  EXPECT_TRUE(clock.waits().empty());
}

}  // namespace
}  // namespace sorrel
