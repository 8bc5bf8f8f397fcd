#pragma once

#include <cstddef>
#include <memory>

#include "SorrelFramework/Platform/Queues/WeftSerialQueue.hpp"

namespace sorrel::test {

/// A serial queue that counts what is submitted to it and refuses tasks on demand. Safe on any thread.
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
  /// From now on a refusal is told only by deliverFailures(), as a queue might that notices late.
  void holdFailures();
  /// Calls the failures that were held back, on the calling thread; answers how many.
  std::size_t deliverFailures();

  /// Submissions that were not refused on demand.
  [[nodiscard]] std::size_t accepted() const;
  [[nodiscard]] std::size_t refused() const;

 private:
  struct Notes;
  std::unique_ptr<Notes> notes_;
};

/// Waits until everything that `queue` took before has run; false if it does not come to that. Not for a task
/// of the queue itself.
bool drain(WeftSerialQueue& queue);

}  // namespace sorrel::test
