#include "SorrelFramework/HelpTool/PollingThread.hpp"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <unistd.h>
#include <atomic>
#include <cstdint>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "Tests/Support/MainLoop.hpp"

namespace sorrel {
namespace {

PollingThread::Source noSource() {
  return {[] { return PollingThread::Wait(); }, [] {}};
}

TEST(PollingThread, runsTasksInOrderOnItsThread) {
  PollingThread thread(noSource());
  thread.start();
  std::vector<int> order;
  std::promise<bool> isDone;
  for (int i = 0; i < 100; ++i) thread.post([&order, i] { order.push_back(i); });
  thread.post([&] { isDone.set_value(thread.isCurrent()); });
  EXPECT_TRUE(isDone.get_future().get());
  EXPECT_FALSE(thread.isCurrent());
  ASSERT_EQ(order.size(), 100U);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
}

TEST(PollingThread, aTaskMayPostAnother) {
  PollingThread thread(noSource());
  thread.start();
  std::promise<void> isDone;
  thread.post([&] { thread.post([&] { isDone.set_value(); }); });
  EXPECT_EQ(isDone.get_future().wait_for(test::kPatience), std::future_status::ready);
}

TEST(PollingThread, handlesWhatComesIn) {
  const FileDescriptor event(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
  std::promise<std::uint64_t> received;
  PollingThread thread({[&] {
                          return PollingThread::Wait{event.get(), POLLIN, -1};
                        },
                        [&] {
                          std::uint64_t value = 0;
                          if (::read(event.get(), &value, sizeof value) > 0) received.set_value(value);
                        }});
  thread.start();
  const std::uint64_t sent = 7;
  ASSERT_EQ(::write(event.get(), &sent, sizeof sent), static_cast<ssize_t>(sizeof sent));
  auto answer = received.get_future();
  ASSERT_EQ(answer.wait_for(test::kPatience), std::future_status::ready);
  EXPECT_EQ(answer.get(), 7U);
}

TEST(PollingThread, handlesWhatComesInBetweenTwoTasks) {
  std::atomic<int> handled = 0;
  std::promise<int> before;
  PollingThread thread({[] { return PollingThread::Wait(); }, [&handled] { ++handled; }});
  thread.post([] {});
  thread.post([&] { before.set_value(handled); });
  thread.start();
  EXPECT_EQ(before.get_future().get(), 1);
}

TEST(PollingThread, mayEndInOneOfItsOwnTasks) {
  auto thread = std::make_shared<PollingThread>(noSource());
  std::promise<void> isFree;
  const auto tracked = std::make_shared<int>(1);
  thread->start();
  thread->post([held = thread, wait = isFree.get_future().share()] { wait.wait(); });
  thread->post([tracked] { *tracked = 2; });  // dropped: the object is destroyed before
  const std::weak_ptr<PollingThread> watch = thread;
  thread.reset();
  isFree.set_value();
  while (!watch.expired() || tracked.use_count() > 1) std::this_thread::yield();
  EXPECT_EQ(*tracked, 1);
}

TEST(PollingThread, dropsTasksThatNeverRan) {
  std::atomic<int> runs = 0;
  {
    PollingThread thread(noSource());
    thread.post([&runs] { ++runs; });
  }
  EXPECT_EQ(runs, 0);
}

}  // namespace
}  // namespace sorrel
