#pragma once

#include <sys/types.h>
#include <termios.h>

#include <string>

namespace sorrel::cli {

/// The program that asks for an administrator's password on the terminal of this process, for sessions
/// without an agent of their own, such as a text console. It handles polkit's requests for this process only,
/// from waitUntilReady() until the destruction of the object.
class TerminalAgent {
 public:
  static constexpr const char* kProgram = "/usr/bin/pkttyagent";

  /// Starts `program`. To be called on the main thread: the agent ends with the thread that started it.
  explicit TerminalAgent(const std::string& program);
  /// Ends the agent, and restores the terminal's settings.
  ~TerminalAgent();
  TerminalAgent(const TerminalAgent&) = delete;
  TerminalAgent& operator=(const TerminalAgent&) = delete;

  /// Returns once the agent is registered with polkit, the agent has ended, as it does without polkit, or
  /// after two seconds.
  void waitUntilReady();

 private:
  int ready_ = -1;
  pid_t process_ = -1;
  bool hasTerminal_ = false;
  termios settings_{};
};

}  // namespace sorrel::cli
