#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace sorrel {

/// The application's event loop: the default GLib main context, which GTK runs, and Qt too. Tasks run there
/// in the order of their submission, never inside post().
class MainQueue {
 public:
  MainQueue() = delete;

  /// Any thread.
  static void post(std::function<void()> task);

  /// True on the thread that runs the loop; while no thread does, on the first thread of the process.
  [[nodiscard]] static bool isCurrent();

  /// For applications without an event loop of their own, such as a command-line program: runs the loop on
  /// the calling thread until quit().
  static void run();
  static void quit();
  /// Runs the loop until `condition` is true (tested after each round, and every 10 ms) or the time is over;
  /// returns whether it is true.
  static bool runUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit);
};

/// A repeating timer of the main queue. Ticks only while the loop runs; late ticks coalesce.
class MainTimer {
 public:
  /// The first tick comes after one `interval`. Any thread.
  MainTimer(std::chrono::milliseconds interval, std::function<void()> tick);
  /// Same as invalidate().
  ~MainTimer();
  MainTimer(const MainTimer&) = delete;
  MainTimer& operator=(const MainTimer&) = delete;

  /// No tick starts after this call has returned, except one that is already running on another thread. Any
  /// thread, also from inside the tick; repeated calls are harmless.
  void invalidate();

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace sorrel
