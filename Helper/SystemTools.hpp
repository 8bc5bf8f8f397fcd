#pragma once

#include <array>
#include <memory>

namespace sorrel::helper {

/// A method without arguments of a service on the system bus.
struct BusMethod {
  const char* service;
  const char* path;
  const char* interface;
  const char* method;
};

/// A program with fixed arguments.
struct FixedCommand {
  /// The command is run only if this exists.
  const char* purpose;
  /// True if the command replaces `purpose` by a new item, and has failed if it does not.
  bool renewsPurpose;
  /// The program's absolute path first; null after the last.
  std::array<const char*, 4> arguments;
};

/// The parts of the system that maintenance uses: its services and programs. No shell, an environment with
/// PATH only, and no data of an event.
class SystemTools {
 public:
  enum class Answer { Absent, Done, Failed, TimedOut };

  virtual ~SystemTools() = default;
  /// Calls a running service; Absent if it does not run. It is not started.
  virtual Answer call(const BusMethod& method) = 0;
  /// Runs the command to its end; Absent if its purpose does not exist.
  virtual Answer run(const FixedCommand& command) = 0;

  /// The tools of this machine.
  static std::unique_ptr<SystemTools> ofThisMachine();
};

}  // namespace sorrel::helper
