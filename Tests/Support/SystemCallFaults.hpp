#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>

namespace sorrel::test {

/// One system call, of all those that a piece of work makes, that does not end as it should.
struct CallFault {
  static constexpr int kKilled = -1;

  int call = -1;           ///< its number, SYS_...; each call if it is negative
  std::uint64_t when = 0;  ///< the first one is 1; 0 for none
  /// The errno with which it fails, without having been carried out (but for close(2), which always closes).
  /// kKilled: the process gets SIGKILL at its entry instead.
  int error = 0;
};

/// How often the work made each of the calls that were watched.
using CallCounts = std::map<int, std::uint64_t>;

/// Runs `work` on a thread of its own, with that fault. The calls of threads that the work starts count too,
/// and all of them must have ended by themselves soon after it. Nothing where the system can't watch calls;
/// then the work is not run. It needs no privilege, and the faults are seen by this process alone.
std::optional<CallCounts> runWithFault(const CallFault& fault, const std::function<void()>& work);

}  // namespace sorrel::test
