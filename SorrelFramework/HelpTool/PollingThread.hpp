#pragma once

#include <functional>
#include <memory>
#include <thread>

namespace sorrel {

/// A thread that runs posted tasks in order and waits for one event source in between.
class PollingThread {
 public:
  /// The condition that the thread waits for; poll(2).
  struct Wait {
    int descriptor = -1;  ///< -1: for tasks only
    short events = 0;
    int timeout = -1;  ///< milliseconds; -1 for ever
  };
  struct Source {
    /// Called on the thread before each wait.
    std::function<Wait()> wait;
    /// Called on the thread after each wait and each task: processes incoming data.
    std::function<void()> process;
  };

  /// This and start() throw std::system_error if the system has no descriptor or no thread left.
  explicit PollingThread(Source source);
  /// To be called once. Tasks that were posted before run then.
  void start();
  /// No task and no call of the source starts after this. Waits for the running one, unless that one destroys
  /// the object: then the thread ends by itself. Tasks that did not run are dropped.
  ~PollingThread();
  PollingThread(const PollingThread&) = delete;
  PollingThread& operator=(const PollingThread&) = delete;

  [[nodiscard]] bool isCurrent() const;

  /// Any thread, also this one; never runs the task inside the call.
  void post(std::function<void()> task);

 private:
  struct State;

  std::shared_ptr<State> state_;
  std::thread thread_;
};

}  // namespace sorrel
