#include "SorrelFramework/Platform/Queues/GlobalQueue.hpp"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "SorrelFramework/Platform/Base/Fatal.hpp"
#include "SorrelFramework/Platform/Queues/WorkerThread.hpp"

namespace sorrel {
namespace {

constexpr std::size_t kPools = 5;
constexpr std::array<const char*, kPools> kThreadNames = {
    "sorrel-interact", "sorrel-initiate", "sorrel-default", "sorrel-utility", "sorrel-backgrnd"};

/// The threads of one quality of service. Never destroyed: its threads may be in a task while the process
/// ends.
class Pool {
 public:
  explicit Pool(WeftQOS qos) : qos_(qos) {}

  void submit(std::function<void()> task) {
    {
      const std::lock_guard lock(mutex_);
      tasks_.push_back(std::move(task));
      if (idle_ < tasks_.size() && threads_ < GlobalQueue::width()) startThread();
    }
    wake_.notify_one();
  }

 private:
  void startThread() {
    std::thread thread =
        startWorkerThread(kThreadNames[static_cast<std::size_t>(qos_)], qos_, [this] { work(); });
    if (thread.joinable()) {
      ++threads_;
      thread.detach();
    } else if (threads_ == 0) {
      // The task would never run, and a scan that waits for it would hang silently.
      fatalStop("No thread can be started");
    }
  }

  [[noreturn]] void work() {
    for (;;) {
      const std::function<void()> task = next();
      task();
    }
  }

  std::function<void()> next() {
    std::unique_lock lock(mutex_);
    ++idle_;
    wake_.wait(lock, [this] { return !tasks_.empty(); });
    --idle_;
    std::function<void()> task = std::move(tasks_.front());
    tasks_.pop_front();
    return task;
  }

  const WeftQOS qos_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::function<void()>> tasks_;
  std::size_t idle_ = 0;  // threads that wait, or were woken and have not taken their task yet
  unsigned threads_ = 0;
};

Pool& pool(WeftQOS qos) {
  static auto& pools = *new std::array<Pool, kPools>{Pool(WeftQOS::UserInteractive),
                                                     Pool(WeftQOS::UserInitiated), Pool(WeftQOS::Default),
                                                     Pool(WeftQOS::Utility), Pool(WeftQOS::Background)};
  return pools[static_cast<std::size_t>(qos)];
}

}  // namespace

void GlobalQueue::submit(std::function<void()> task, WeftQOS qos) {
  if (task) pool(qos).submit(std::move(task));
}

void GlobalQueue::submitBlocking(std::function<void()> task) {
  if (!task) return;
  auto shared = std::make_shared<std::function<void()>>(std::move(task));
  // Moved out, so that the objects held by the task are freed on the thread that ran it.
  const auto run = [shared] { std::exchange(*shared, nullptr)(); };
  std::thread thread = startWorkerThread("sorrel-blocking", WeftQOS::Default, run);
  if (thread.joinable()) {
    thread.detach();
  } else {
    submit(run);  // late is better than never
  }
}

unsigned GlobalQueue::width() {
  static const unsigned processors = std::max(2U, std::thread::hardware_concurrency());
  return processors;
}

}  // namespace sorrel
