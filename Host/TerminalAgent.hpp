#pragma once

#include <sys/types.h>
#include <termios.h>

#include <string>

namespace sorrel::cli {

/// The program that asks for an administrator's password on the terminal of this process, where no program of
/// the session does: on a text console. It serves polkit's questions about this process only, from
/// waitUntilReady() until the end of the object.
class TerminalAgent {
 public:
  static constexpr const char* kProgram = "/usr/bin/pkttyagent";

  /// Starts `program`. On the main thread: the agent ends with the thread that started it.
  explicit TerminalAgent(const std::string& program);
  /// Ends it, and gives the terminal the settings that it had before.
  ~TerminalAgent();
  TerminalAgent(const TerminalAgent&) = delete;
  TerminalAgent& operator=(const TerminalAgent&) = delete;

  /// Returns once polkit knows the agent, the agent has ended, as it does without polkit, or two seconds are
  /// over.
  void waitUntilReady();

 private:
  int ready_ = -1;
  pid_t process_ = -1;
  bool hasTerminal_ = false;
  termios settings_{};
};

}  // namespace sorrel::cli
