#pragma once

#include <functional>

#include "SorrelFramework/Platform/Base/WeftQOS.hpp"

namespace sorrel {

/// The global concurrent queue: one bounded pool of threads for each quality of service, started on first
/// use. Utility and Background threads yield to the desktop (nice value, and the idle I/O class for
/// Background). A task must not wait for another task of the pool that may not have started.
class GlobalQueue {
 public:
  GlobalQueue() = delete;

  /// Runs `task` on a thread of the pool, as soon as one is free. Never refuses. Any thread.
  static void submit(std::function<void()> task, WeftQOS qos = WeftQOS::Default);

  /// Runs `task`, which is going to block (a child process, a dialog), on a thread outside the bounded pool.
  static void submitBlocking(std::function<void()> task);

  /// Threads of one pool: the number of the machine's processors, at least two.
  static unsigned width();
};

}  // namespace sorrel
