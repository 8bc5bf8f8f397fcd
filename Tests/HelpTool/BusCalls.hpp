#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

namespace sorrel::test {

/// What sdbus-c++ asks of the library below it.
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
  /// The time-outs since the last call of this, in microseconds.
  std::vector<std::uint64_t> takeTimeouts() {
    const std::lock_guard lock(mutex_);
    return std::exchange(timeouts_, {});
  }
  /// Lets something happen at the beginning of a call, on its thread: of the next one, or some later.
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

/// Those of this program.
BusCalls& busCalls();

}  // namespace sorrel::test
