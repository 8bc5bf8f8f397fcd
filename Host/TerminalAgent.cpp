#include "Host/TerminalAgent.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace sorrel::cli {
namespace {

/// The descriptor on which the agent reports that it is registered with polkit.
constexpr int kNotify = 3;
/// Milliseconds to wait for a bus that does not answer the agent; it would not answer this process either.
constexpr int kPatience = 2'000;

[[noreturn]] void runAgent(const char* program, const char* process, int notify, pid_t parent) {
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  const int nothing = ::open("/dev/null", O_RDWR);
  // The agent opens the terminal itself. Its error message without polkit adds nothing to the refusal.
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(nothing, stream);
  if (notify == kNotify) {
    ::fcntl(kNotify, F_SETFD, 0);
  } else {
    ::dup2(notify, kNotify);
  }
  ::close_range(kNotify + 1, ~0U, 0);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) ::signal(number, SIG_DFL);
  if (::getppid() == parent) {
    ::execl(program, program, "--process", process, "--fallback", "--notify-fd", "3", nullptr);
  }
  ::_exit(127);
}

}  // namespace

TerminalAgent::TerminalAgent(const std::string& program) {
  std::array<int, 2> ends{-1, -1};
  if (::access(program.c_str(), X_OK) != 0 || ::pipe2(ends.data(), O_CLOEXEC) != 0) return;
  hasTerminal_ = ::tcgetattr(STDIN_FILENO, &settings_) == 0;
  const pid_t self = ::getpid();
  const std::string number = std::to_string(self);
  process_ = ::fork();
  if (process_ == 0) runAgent(program.c_str(), number.c_str(), ends[1], self);
  ::close(ends[1]);
  ready_ = ends[0];
}

TerminalAgent::~TerminalAgent() {
  if (ready_ >= 0) ::close(ready_);
  if (process_ <= 0) return;
  ::kill(process_, SIGTERM);
  while (::waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
  }
  // An agent that is killed during a prompt leaves the terminal without echo.
  if (hasTerminal_) ::tcsetattr(STDIN_FILENO, TCSADRAIN, &settings_);
}

void TerminalAgent::waitUntilReady() {
  if (ready_ < 0) return;
  pollfd end{ready_, POLLIN, 0};
  while (::poll(&end, 1, kPatience) < 0 && errno == EINTR) {
  }
}

}  // namespace sorrel::cli
