#pragma once

#include <functional>
#include <thread>

namespace sorrel::cli {

/// Turns Ctrl-C (SIGINT) into a call on the main queue. Construct it first in main: the signal must be
/// blocked before any other thread starts. The second Ctrl-C ends the process at once with status 130.
class InterruptWatch {
 public:
  InterruptWatch();
  ~InterruptWatch();
  InterruptWatch(const InterruptWatch&) = delete;
  InterruptWatch& operator=(const InterruptWatch&) = delete;

  /// `stop` runs once on the main queue at the first Ctrl-C; a signal that came before start() counts, and
  /// its call is posted before start() returns. May be called once.
  void start(std::function<void()> stop);

 private:
  void watch(bool stopped);
  void interrupt(bool again) const;
  [[nodiscard]] bool takeSignal() const;

  int signals_ = -1;
  int finish_ = -1;
  std::function<void()> stop_;
  std::thread thread_;
};

}  // namespace sorrel::cli
