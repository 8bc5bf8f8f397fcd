#include "SorrelFramework/Platform/Queues/WeftSerialQueue.hpp"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "SorrelFramework/Platform/Base/Clock.hpp"
#include "SorrelFramework/Platform/Queues/WorkerThread.hpp"

namespace sorrel {
namespace {

constexpr std::uint64_t kRetryMicroseconds = 500'000;

thread_local const void* currentState = nullptr;

}  // namespace

/// Shared with the thread, so that it outlives a queue that is destroyed inside one of its own tasks.
struct WeftSerialQueue::State {
  explicit State(WeftQOS quality) : qos(quality) {}

  std::optional<WeftRunError> take(const std::shared_ptr<State>& self, Task& task) {
    {
      const std::lock_guard lock(mutex);
      if (closed) return WeftRunError::ShutDown;
      if (!thread.joinable()) {
        thread = startWorkerThread("sorrel-serial", qos, [self] { self->work(); });
        if (!thread.joinable()) return WeftRunError::NoThread;
      }
      tasks.push_back(std::move(task));
    }
    wake.notify_one();
    return std::nullopt;
  }

  void work() {
    currentState = this;
    while (Task task = next()) task();
  }

  /// Empty when the queue is closed and no task is left.
  Task next() {
    std::unique_lock lock(mutex);
    wake.wait(lock, [this] { return closed || !tasks.empty(); });
    if (tasks.empty()) return {};
    Task task = std::move(tasks.front());
    tasks.pop_front();
    return task;
  }

  const WeftQOS qos;
  std::mutex mutex;
  std::condition_variable wake;
  std::deque<Task> tasks;
  bool closed = false;
  std::thread thread;
};

WeftSerialQueue::WeftSerialQueue(WeftQOS qos) : state_(std::make_shared<State>(qos)) {}

WeftSerialQueue::~WeftSerialQueue() {
  shutDown();
  std::thread thread;
  {
    const std::lock_guard lock(state_->mutex);
    thread = std::move(state_->thread);
  }
  if (!thread.joinable()) return;
  if (isCurrent()) {
    thread.detach();
  } else {
    thread.join();
  }
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): a queue that overrides this may keep the failure
void WeftSerialQueue::submit(Task task, Failure failure) {
  if (!task) task = [] {};  // an empty function would signal the end of the queue
  const auto refused = state_->take(state_, task);
  if (refused && failure) failure(*refused);
}

void WeftSerialQueue::shutDown() {
  {
    const std::lock_guard lock(state_->mutex);
    state_->closed = true;
  }
  state_->wake.notify_one();
}

bool WeftSerialQueue::isCurrent() const { return currentState == state_.get(); }

namespace {

/// One submission whose refusal may arrive inside submit(), as the contract says, or after it has returned.
struct Attempt {
  std::mutex mutex;
  bool submitting = true;
  std::optional<WeftRunError> refused;

  /// True if the error was left for the loop that is still submitting.
  bool leaveForSubmitter(WeftRunError error) {
    const std::lock_guard lock(mutex);
    if (submitting) refused = error;
    return submitting;
  }
  std::optional<WeftRunError> endOfSubmission() {
    const std::lock_guard lock(mutex);
    submitting = false;
    return refused;
  }
};

using SharedTask = std::shared_ptr<WeftSerialQueue::Task>;

std::optional<WeftRunError> submitOnce(const std::shared_ptr<WeftSerialQueue>& queue,
                                       const SharedTask& task) {
  const auto attempt = std::make_shared<Attempt>();
  const std::weak_ptr<WeftSerialQueue> weakQueue = queue;
  queue->submit(
      // Moved out, so that the objects held by the task are freed on the queue.
      [task] { std::exchange(*task, nullptr)(); },
      [attempt, weakQueue, task](WeftRunError error) {
        if (attempt->leaveForSubmitter(error) || error == WeftRunError::ShutDown) return;
        waitMicroseconds(kRetryMicroseconds);
        if (const auto alive = weakQueue.lock()) submitWithRetry(alive, std::move(*task));
      });
  return attempt->endOfSubmission();
}

}  // namespace

void submitWithRetry(const std::shared_ptr<WeftSerialQueue>& queue, WeftSerialQueue::Task task) {
  const auto shared = std::make_shared<WeftSerialQueue::Task>(std::move(task));
  while (const auto refused = submitOnce(queue, shared)) {
    if (*refused == WeftRunError::ShutDown) return;
    waitMicroseconds(kRetryMicroseconds);
  }
}

}  // namespace sorrel
