#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace sorrel {
class MainTimer;
}

namespace sorrel::cli {

/// A line at the end of standard error that changes while something runs: on the screen from begin() to
/// end(), redrawn on each change and twice a second, with the elapsed seconds. Does nothing if standard error
/// is not a terminal. Main thread only.
class LiveLine {
 public:
  using Text = std::function<std::string()>;

  /// `text` returns the current line; characters that a terminal would interpret are escaped in it.
  LiveLine(bool wanted, Text text);
  ~LiveLine();
  LiveLine(const LiveLine&) = delete;
  LiveLine& operator=(const LiveLine&) = delete;

  void begin();
  /// Redraws the line, unless that happened a moment ago.
  void changed();
  /// Redraws the line at once.
  void draw();
  /// Removes the line from the screen for good.
  void end();
  [[nodiscard]] bool isEnabled() const noexcept { return enabled_; }

 private:
  using Clock = std::chrono::steady_clock;

  bool enabled_;
  bool drawn_ = false;
  Text text_;
  Clock::time_point began_;
  Clock::time_point last_;
  std::unique_ptr<MainTimer> timer_;
};

}  // namespace sorrel::cli
