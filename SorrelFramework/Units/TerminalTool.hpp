#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "SorrelFramework/Platform/Queues/WeftSerialQueue.hpp"

namespace sorrel {

class ChildNotes;

/// Gets the whole output of a tool.
using TerminalFinish = std::function<void(std::string)>;

/// Runs the tools of the system as child processes. `launchPath` is the path at which the system has the
/// tool; the machine may have a stand-in elsewhere. Only standard output is used, not the exit status. A tool
/// that cannot be started counts as one whose output is not text. If the output exceeds 256 MiB, the whole
/// lines before that limit count, the tool is ended, and the log reports it. All calls block until the tool
/// has exited: never call them on the main queue.
class TerminalUtils {
 public:
  TerminalUtils() = delete;

  /// The whole output, or "Error" if it is not UTF-8.
  static std::string runTerminal(const std::string& launchPath, const std::vector<std::string>& arguments);

  /// Collects the output piece by piece on `thread` and calls `finish` there, once, when the tool has exited:
  /// with the whole output, or "" if it is not UTF-8. Refused pieces are submitted again until `thread`
  /// accepts them; a queue that was shut down never calls `finish`.
  static void realTimeRunTerminal(const std::string& launchPath, const std::vector<std::string>& arguments,
                                  const std::shared_ptr<WeftSerialQueue>& thread, TerminalFinish finish);

  /// Changes the limit of 256 MiB; it is not restored. Must not be called while a tool runs.
  static void setOutputLimitForTesting(std::size_t bytes);
};

/// The same for the scan of one feature: stopping that scan interrupts the tool.
class TerminalUtilsClass {
 public:
  explicit TerminalUtilsClass(std::int64_t featureIndex);

  std::string runTerminal(const std::string& launchPath, const std::vector<std::string>& arguments) const;

  /// Like TerminalUtils::realTimeRunTerminal; but each piece of output that arrives while the scan is
  /// suspended is dropped and sends the tool SIGINT. `finish` gets the text collected before. A tool that
  /// prints nothing more is not interrupted.
  void realTimeRunTerminal(const std::string& launchPath, const std::vector<std::string>& arguments,
                           const std::shared_ptr<WeftSerialQueue>& thread, TerminalFinish finish) const;

  /// As TerminalUtils::realTimeRunTerminal; but a stop of the scan kills the tool at once, whatever it does.
  /// `finish` then gets the whole lines that it had printed. The tool may leave notes; null for none.
  /// Returns 0, or the errno with which the tool could not be started: then `finish` is not called.
  int runUntilStopped(const std::string& launchPath, const std::vector<std::string>& arguments,
                      const std::shared_ptr<WeftSerialQueue>& thread, TerminalFinish finish,
                      const ChildNotes* notes = nullptr) const;

  std::int64_t featureIndex;  ///< finderID of the feature that the runner serves
};

}  // namespace sorrel
