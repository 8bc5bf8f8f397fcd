#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

namespace sorrel::test {

/// The calls of sdbus-c++ to the library below it.
class BusCalls {
 public:
  void note(std::uint64_t timeout) {
    std::function<void()> event;
    {
      const std::lock_guard lock(mutex_);
      timeouts_.push_back(timeout);
      if (before_ != nullptr && more_-- == 0) event = std::exchange(before_, nullptr);
    }
    if (event) event();
  }
  /// The time-outs since the last call of this function, in microseconds.
  std::vector<std::uint64_t> takeTimeouts() {
    const std::lock_guard lock(mutex_);
    return std::exchange(timeouts_, {});
  }
  /// Runs an action at the beginning of a call, on its thread: of the next one, or `more` calls later.
  void before(int more, std::function<void()> event) {
    const std::lock_guard lock(mutex_);
    more_ = more;
    before_ = std::move(event);
  }

 private:
  std::mutex mutex_;
  std::vector<std::uint64_t> timeouts_;
  int more_ = 0;
  std::function<void()> before_;
};

/// The instance of this program.
BusCalls& busCalls();

}  // namespace sorrel::test
