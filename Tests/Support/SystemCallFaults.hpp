#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>

namespace sorrel::test {

/// One system call, of all those that an operation makes, that is made to fail.
struct CallFault {
  static constexpr int kKilled = -1;

  int call = -1;           ///< its number, SYS_...; each call if it is negative
  std::uint64_t when = 0;  ///< the first one is 1; 0 for none
  /// The errno with which it fails, without being executed (except close(2), which always closes). kKilled:
  /// the process gets SIGKILL at its entry instead.
  int error = 0;
  std::uint64_t step = 0;  ///< each `step`-th call after it fails too; 0 for that one only
  /// Runs while the call waits; afterwards the call is executed instead of failing. It must need no resource
  /// that the work may hold.
  std::function<void()> meanwhile = {};
};

/// How often each of the watched calls was made.
using CallCounts = std::map<int, std::uint64_t>;

/// Runs `work` on a thread of its own, with that fault. The calls of threads that the work starts count too,
/// and all of them must end by themselves soon after it. Nothing where the system can't watch calls; then the
/// work is not run. It needs no privilege, and only this process sees the faults.
std::optional<CallCounts> runWithFault(const CallFault& fault, const std::function<void()>& work);

/// A program that has ended.
struct FaultyRun {
  int status = 0;            ///< as of waitpid(2)
  std::uint64_t faults = 0;  ///< in its processes
  std::uint64_t calls = 0;   ///< of the watched kind, made by the last process
};

/// Runs a program to its end, with that fault in the processes that it starts, not in itself. They must run
/// one after the other; the count restarts with each. Nothing where the system can't watch calls.
std::optional<FaultyRun> runProgramWithFault(const CallFault& fault, char* const* arguments);

}  // namespace sorrel::test
