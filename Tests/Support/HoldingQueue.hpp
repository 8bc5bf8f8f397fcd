#pragma once

#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "Tests/Support/RecordingQueue.hpp"

namespace sorrel::test {

/// A serial queue that holds its tasks back from the submission of a certain number on, until release().
class HoldingQueue : public RecordingQueue {
 public:
  explicit HoldingQueue(std::size_t first) : first_(first) {}

  void submit(Task task, Failure failure) override {
    const std::lock_guard lock(mutex_);
    if (++count_ < first_ || isReleased_) return RecordingQueue::submit(std::move(task), std::move(failure));
    held_.emplace_back(std::move(task), std::move(failure));
  }
  [[nodiscard]] bool holds() {
    const std::lock_guard lock(mutex_);
    return !held_.empty();
  }
  void release() {
    const std::lock_guard lock(mutex_);
    isReleased_ = true;
    for (auto& [task, failure] : std::exchange(held_, {})) RecordingQueue::submit(task, failure);
  }

 private:
  std::mutex mutex_;
  std::size_t first_;
  std::size_t count_ = 0;
  bool isReleased_ = false;
  std::vector<std::pair<Task, Failure>> held_;
};

}  // namespace sorrel::test
