#pragma once

#include <functional>
#include <memory>

#include "SorrelFramework/Platform/Base/WeftQOS.hpp"

namespace sorrel {

/// Why a serial queue refused a task. Only ShutDown has a meaning for callers: that queue will never accept a
/// task again.
enum class WeftRunError : int {
  QueueFull = 0,
  Suspended = 1,
  OutOfMemory = 2,
  NoThread = 3,
  ShutDown = 4,
  Unknown = 5,
};

/// Runs tasks in the order of their submission, one at a time, on a thread of its own, so that a full pool
/// never starves it. The thread starts with the first task. Virtual, so that a test can refuse tasks on
/// demand.
class WeftSerialQueue {
 public:
  using Task = std::function<void()>;
  using Failure = std::function<void(WeftRunError)>;

  explicit WeftSerialQueue(WeftQOS qos);
  /// Runs the submitted tasks, then ends the thread. May be called from a task of the queue itself.
  virtual ~WeftSerialQueue();
  WeftSerialQueue(const WeftSerialQueue&) = delete;
  WeftSerialQueue& operator=(const WeftSerialQueue&) = delete;

  /// Accepts `task`, or calls `failure` on the calling thread before it returns; never both. Any thread.
  virtual void submit(Task task, Failure failure);

  /// Accepts no further tasks: submit() fails with ShutDown. Tasks accepted before still run.
  void shutDown();

  /// True on the thread that runs this queue's tasks.
  [[nodiscard]] bool isCurrent() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

/// Submits `task` until the queue accepts it: waits half a second after each refusal, and gives up only on
/// WeftRunError::ShutDown. The only retry rule of the framework. Blocks the caller while it waits.
void submitWithRetry(const std::shared_ptr<WeftSerialQueue>& queue, WeftSerialQueue::Task task);

}  // namespace sorrel
