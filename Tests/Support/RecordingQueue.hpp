#pragma once

#include <cstddef>
#include <memory>

#include "SorrelFramework/Platform/Queues/WeftSerialQueue.hpp"

namespace sorrel::test {

/// A serial queue that counts its submissions and refuses tasks on demand. Safe on any thread.
class RecordingQueue : public WeftSerialQueue {
 public:
  explicit RecordingQueue(WeftQOS qos = WeftQOS::Default);
  ~RecordingQueue() override;

  void submit(Task task, Failure failure) override;

  /// Refuses the next `count` submissions with `error`.
  void refuseNext(std::size_t count, WeftRunError error = WeftRunError::QueueFull);
  /// Refuses every submission with `error` until acceptAgain().
  void refuseAll(WeftRunError error = WeftRunError::QueueFull);
  void acceptAgain();
  /// From now on a refusal is reported only by deliverFailures(), as by a queue that notices late.
  void holdFailures();
  /// Calls the failures that were held back, on the calling thread; returns their number.
  std::size_t deliverFailures();

  /// Submissions that were not refused on demand.
  [[nodiscard]] std::size_t accepted() const;
  [[nodiscard]] std::size_t refused() const;

 private:
  struct Notes;
  std::unique_ptr<Notes> notes_;
};

/// Waits until all tasks that `queue` accepted before have run; false if that does not happen. Not for a task
/// of the queue itself.
bool drain(WeftSerialQueue& queue);

}  // namespace sorrel::test
