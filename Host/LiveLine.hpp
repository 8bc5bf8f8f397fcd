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
/// end(), written anew when something changed and twice a second, with the seconds that passed. Does nothing
/// where standard error is no terminal. Main thread only.
class LiveLine {
 public:
  using Text = std::function<std::string()>;

  /// `text` gives the line of the moment; characters that a terminal would act on are escaped in it.
  LiveLine(bool wanted, Text text);
  ~LiveLine();
  LiveLine(const LiveLine&) = delete;
  LiveLine& operator=(const LiveLine&) = delete;

  void begin();
  /// Draws the line again, unless that happened a moment ago.
  void changed();
  /// The same at once.
  void draw();
  /// Takes the line off the screen for good.
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
