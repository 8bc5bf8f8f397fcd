#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>

#include "SorrelFramework/Platform/Queues/WeftSerialQueue.hpp"

namespace sorrel {

/// Joins a fixed number of tasks: the last arrival runs `then`, once, and sees all that the others wrote
/// before they arrived. Each task holds the countdown; if a task is dropped without an arrival, `then` never
/// runs and is freed with the last handle.
class Countdown {
 public:
  /// `then` runs on `queue`, with the retry rule, or without a queue on the thread that arrives last. With a
  /// count of 0 that happens at once.
  [[nodiscard]] static std::shared_ptr<Countdown> from(std::size_t count, std::function<void()> then,
                                                       std::shared_ptr<WeftSerialQueue> queue = nullptr);

  /// Any thread; once for each task.
  void arrive();

 private:
  Countdown(std::size_t count, std::function<void()> then, std::shared_ptr<WeftSerialQueue> queue);
  void finish();

  std::atomic<std::size_t> left_;
  std::function<void()> then_;
  std::shared_ptr<WeftSerialQueue> queue_;
};

}  // namespace sorrel
