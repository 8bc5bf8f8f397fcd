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
  /// The command has a purpose only if this exists.
  const char* purpose;
  /// Whether the command puts something new in the place of `purpose`, and has failed if it does not.
  bool renewsPurpose;
  /// The program's absolute path first; null behind the last.
  std::array<const char*, 4> arguments;
};

/// The parts of the system that maintenance needs: its services and programs. No shell, an empty environment
/// but for PATH, and nothing that came with an event.
class SystemTools {
 public:
  enum class Answer { Absent, Done, Failed, TimedOut };

  virtual ~SystemTools() = default;
  /// Calls a service that runs; Absent if none does. None is started for it.
  virtual Answer call(const BusMethod& method) = 0;
  /// Runs the command to its end; Absent without a purpose.
  virtual Answer run(const FixedCommand& command) = 0;

  /// Those of this machine.
  static std::unique_ptr<SystemTools> ofThisMachine();
};

}  // namespace sorrel::helper
