#pragma once

#include <poll.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "Helper/EventRunner.hpp"
#include "Helper/ResultPipe.hpp"
#include "Helper/ResultTable.hpp"
#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel::helper {

/// Runs each event in a process of its own and keeps its results, so that every event ends with a tally, even
/// if the process dies. One thread; it must be the only one of this process, because workers are forked from
/// it and continue as this program.
class Supervisor {
 public:
  using Run = std::function<EventOutcome(const EventJob&, ResultSink&)>;
  /// How the work on an event ended.
  struct Ending {
    const ResultTable& results;
    /// Nothing if the worker was killed, or failed before its end.
    const std::optional<EventOutcome>& outcome;
    long peakMemory;  ///< of the worker, KiB; 0 without an outcome
  };
  /// Called once for each event, by serve(), when the worker's pipe ends. The process itself may take longer:
  /// an uninterruptible system call delays its death for as long as a disk does not answer.
  using Done = std::function<void(const Ending& ending)>;

  explicit Supervisor(Run run = runEvent);
  /// Kills the remaining workers, without waiting for them.
  ~Supervisor();
  Supervisor(const Supervisor&) = delete;
  Supervisor& operator=(const Supervisor&) = delete;

  /// The job's event and configuration must stay valid until `done` was called. False if the system can't
  /// create a process: `done` is not called then. `id` is chosen by the caller.
  [[nodiscard]] bool start(std::uint64_t id, const EventJob& job, Done done);
  /// Kills the worker; `done` is still called.
  void kill(std::uint64_t id);

  [[nodiscard]] std::size_t running() const noexcept { return workers_.size(); }
  /// The process id of a worker; -1 if it is done.
  [[nodiscard]] pid_t process(std::uint64_t id) const;
  /// The descriptors to wait for until they are readable.
  [[nodiscard]] std::vector<int> descriptors() const;
  /// Waits for at most `timeout` milliseconds, without an end if it is negative, and serves the workers until
  /// one of `others` has news or a worker has ended; with a time-out of 0 once. A worker's results come one
  /// by one, sometimes a million of them: the caller has nothing to do for each.
  void wait(std::span<pollfd> others, int timeout);
  /// Reads the available results; to be called after a wait. Never blocks.
  void serve();

 private:
  struct Worker;

  [[noreturn]] void work(int pipe, pid_t supervisor, const EventJob& job) const;
  void read(std::uint64_t id);
  void finish(std::uint64_t id);
  void reap();

  Run run_;
  std::map<std::uint64_t, std::unique_ptr<Worker>> workers_;
  std::map<pid_t, FileDescriptor> dying_;  // with their pidfds
};

}  // namespace sorrel::helper
