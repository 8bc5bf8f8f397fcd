#include "SorrelFramework/Platform/Queues/GlobalQueue.hpp"

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <future>
#include <latch>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "SorrelFramework/Platform/Queues/WeftSerialQueue.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/RecordingQueue.hpp"

namespace sorrel {
namespace {

/// The result of `look` on a thread of the pool of `qos`.
template <class Look>
auto onPool(WeftQOS qos, Look look) {
  std::promise<decltype(look())> promise;
  GlobalQueue::submit([&] { promise.set_value(look()); }, qos);
  return promise.get_future().get();
}

int niceOfThisThread() { return ::getpriority(PRIO_PROCESS, static_cast<id_t>(::gettid())); }

std::string nameOfThisThread() {
  std::array<char, 16> name{};
  pthread_getname_np(pthread_self(), name.data(), name.size());
  return name.data();
}

/// Blocks every thread of the default pool until it is destroyed.
class PoolBlocked {
 public:
  PoolBlocked() {
    for (unsigned i = 0; i < GlobalQueue::width(); ++i) {
      GlobalQueue::submit([this] {
        occupied_.count_down();
        released_.wait();
        left_.count_down();
      });
    }
    occupied_.wait();
  }
  ~PoolBlocked() {
    released_.count_down();
    left_.wait();
  }
  PoolBlocked(const PoolBlocked&) = delete;
  PoolBlocked& operator=(const PoolBlocked&) = delete;

 private:
  std::latch occupied_{GlobalQueue::width()};
  std::latch released_{1};
  std::latch left_{GlobalQueue::width()};
};

TEST(GlobalQueue, runsEveryTaskOnce) {
  constexpr int kTasks = 5'000;
  std::vector<std::atomic<int>> runs(kTasks);
  std::latch all(kTasks);
  for (int i = 0; i < kTasks; ++i) {
    GlobalQueue::submit([&, i] {
      ++runs[static_cast<std::size_t>(i)];
      all.count_down();
    });
  }
  all.wait();
  EXPECT_TRUE(std::all_of(runs.begin(), runs.end(), [](const auto& count) { return count == 1; }));
}

TEST(GlobalQueue, usesNoMoreThreadsThanItsWidth) {
  std::mutex mutex;
  std::set<std::thread::id> threads;
  std::latch all(500);
  for (int i = 0; i < 500; ++i) {
    GlobalQueue::submit([&] {
      {
        const std::lock_guard lock(mutex);
        threads.insert(std::this_thread::get_id());
      }
      all.count_down();
    });
  }
  all.wait();
  EXPECT_LE(threads.size(), GlobalQueue::width());
  EXPECT_FALSE(threads.contains(std::this_thread::get_id()));
}

TEST(GlobalQueue, runsAsManyTasksAtOnceAsItsWidth) {
  std::latch together(GlobalQueue::width());
  std::latch left(GlobalQueue::width());
  for (unsigned i = 0; i < GlobalQueue::width(); ++i) {
    GlobalQueue::submit([&] {
      together.arrive_and_wait();
      left.count_down();
    });
  }
  left.wait();
  EXPECT_GE(GlobalQueue::width(), 2U);
}

TEST(GlobalQueue, emptyTaskIsIgnored) {
  GlobalQueue::submit(nullptr);
  GlobalQueue::submitBlocking(nullptr);
  EXPECT_EQ(onPool(WeftQOS::Default, [] { return 7; }), 7);
}

TEST(GlobalQueue, taskMaySubmitTasks) {
  std::latch ran(1);
  GlobalQueue::submit([&] { GlobalQueue::submit([&] { ran.count_down(); }); });
  ran.wait();
  SUCCEED();
}

TEST(GlobalQueue, fullPoolDoesNotHoldBackAnotherQuality) {
  const PoolBlocked blocked;
  EXPECT_EQ(onPool(WeftQOS::UserInitiated, [] { return 7; }), 7);
}

TEST(GlobalQueue, fullPoolDoesNotHoldBackBlockingTasks) {
  const PoolBlocked blocked;
  // More than the width of the pool, and all of them at once.
  const unsigned count = GlobalQueue::width() + 3;
  std::latch together(count);
  std::latch left(count);
  for (unsigned i = 0; i < count; ++i) {
    GlobalQueue::submitBlocking([&] {
      together.arrive_and_wait();
      left.count_down();
    });
  }
  left.wait();
  SUCCEED();
}

TEST(GlobalQueue, fullPoolDoesNotHoldBackASerialQueue) {
  const PoolBlocked blocked;
  WeftSerialQueue queue(WeftQOS::Default);
  EXPECT_TRUE(test::drain(queue));
}

TEST(GlobalQueue, freesWhatATaskHoldsAfterItRan) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watch = held;
  GlobalQueue::submit([held = std::move(held)] {});
  EXPECT_TRUE(test::runMainLoopUntil([&] { return watch.expired(); }));
}

/// The tests themselves may run with a raised nice value.
TEST(GlobalQueue, backgroundThreadsGiveWay) {
  constexpr int kMostNice = 19;
  const int own = niceOfThisThread();
  EXPECT_EQ(onPool(WeftQOS::Default, niceOfThisThread), own);
  EXPECT_EQ(onPool(WeftQOS::UserInteractive, niceOfThisThread), own);
  EXPECT_EQ(onPool(WeftQOS::Utility, niceOfThisThread), std::min(own + 5, kMostNice));
  EXPECT_EQ(onPool(WeftQOS::Background, niceOfThisThread), std::min(own + 15, kMostNice));
}

TEST(GlobalQueue, backgroundThreadsUseTheIdleClassOfInputAndOutput) {
  constexpr int kWhoProcess = 1;  // numbers of ioprio_get(2)
  constexpr int kIdle = 3;
  const auto ioClass = [] { return ::syscall(SYS_ioprio_get, kWhoProcess, ::gettid()) >> 13; };
  EXPECT_EQ(onPool(WeftQOS::Background, ioClass), kIdle);
  EXPECT_NE(onPool(WeftQOS::Default, ioClass), kIdle);
}

TEST(GlobalQueue, namesItsThreads) {
  EXPECT_EQ(onPool(WeftQOS::Default, nameOfThisThread), "sorrel-default");
  EXPECT_EQ(onPool(WeftQOS::Utility, nameOfThisThread), "sorrel-utility");
}

TEST(GlobalQueue, leavesSignalsToTheThreadsOfTheApplication) {
  EXPECT_TRUE(onPool(WeftQOS::Default, [] {
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    return sigismember(&blocked, SIGINT) == 1 && sigismember(&blocked, SIGTERM) == 1 &&
           sigismember(&blocked, SIGSEGV) == 0;
  }));
}

TEST(GlobalQueueDeathTest, processEndsWhileTasksAreQueuedAndRunning) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        auto& never = *new std::latch(1);
        std::latch running(2);
        for (int i = 0; i < 2; ++i) {
          GlobalQueue::submit([&] {
            running.count_down();
            never.wait();
          });
        }
        for (int i = 0; i < 1'000; ++i) GlobalQueue::submit([&] { never.wait(); });
        running.wait();
        std::exit(7);
      },
      testing::ExitedWithCode(7), "^$");
}

}  // namespace
}  // namespace sorrel
