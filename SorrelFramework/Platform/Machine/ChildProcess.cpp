#include "SorrelFramework/Platform/Machine/ChildProcess.hpp"

#include <fcntl.h>
#include <linux/close_range.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <optional>
#include <utility>

#include "SorrelFramework/Platform/Machine/ChildNotes.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"

namespace sorrel {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::size_t kChunk = std::size_t{64} * 1024;  // the capacity of a pipe
/// Polling interval for the child's end on kernels without process descriptors.
constexpr int kLookMilliseconds = 50;
constexpr int kNotStarted = 127;

constexpr std::array kFixedEnvironment = {"PATH=/usr/bin:/bin:/usr/sbin:/sbin", "LANG=C.UTF-8"};
constexpr std::array kPassedEnvironment = {"HOME",
                                           "USER",
                                           "XDG_RUNTIME_DIR",
                                           "DBUS_SESSION_BUS_ADDRESS",
                                           "XDG_DATA_HOME",
                                           "XDG_CONFIG_HOME",
                                           "XDG_CACHE_HOME",
                                           "XDG_STATE_HOME",
                                           "TMPDIR"};

class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    close();
    fd_ = other.release();
    return *this;
  }
  ~Descriptor() { close(); }
  [[nodiscard]] int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }
  void close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_ = -1;
};

struct Pipe {
  Descriptor reading;
  Descriptor writing;

  /// False with errno set if there is no pipe. Never uses the numbers of the standard streams, which this
  /// process may have closed and which the child is about to fill.
  bool open() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) return false;
    reading = Descriptor(ends[0]);
    writing = Descriptor(ends[1]);
    return lift(reading) && lift(writing);
  }

 private:
  static bool lift(Descriptor& end) {
    if (end.get() > STDERR_FILENO) return true;
    Descriptor lifted(::fcntl(end.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (lifted.get() < 0) return false;
    end = std::move(lifted);
    return true;
  }
};

std::vector<std::string> childEnvironment(int notes) {
  std::vector<std::string> entries(kFixedEnvironment.begin(), kFixedEnvironment.end());
  for (const char* name : kPassedEnvironment) {
    if (const char* value = std::getenv(name)) entries.push_back(std::string(name) + '=' + value);
  }
  const std::string& volume = Host::current().root();
  if (!volume.empty()) entries.push_back(std::string(kVolumeVariable) + '=' + volume);
  if (notes >= 0) entries.push_back(std::string(kNotesVariable) + '=' + std::to_string(notes));
  return entries;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> list;
  list.reserve(texts.size() + 1);
  for (auto& text : texts) list.push_back(text.data());
  list.push_back(nullptr);
  return list;
}

bool hasZeroByte(const std::string& text) { return text.find('\0') != std::string::npos; }

/// Everything the child needs, made before the fork: after it only async-signal-safe calls are allowed.
struct Launch {
  char* const* arguments;
  char* const* environment;
  int output;
  int report;
  int notes;  // -1 for none
  pid_t parent;
};

void resetSignals() {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  for (int number = 1; number < NSIG; ++number) ::sigaction(number, &action, nullptr);
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

bool connectStreams(const Launch& launch) {
  const int empty = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (empty < 0) return false;
  if (empty == STDIN_FILENO) {
    if (::fcntl(empty, F_SETFD, 0) != 0) return false;
  } else if (::dup2(empty, STDIN_FILENO) < 0) {
    return false;
  }
  return ::dup2(launch.output, STDOUT_FILENO) >= 0;
}

/// The child's side of the fork.
[[noreturn]] void becomeProgram(const Launch& launch) {
  ::setsid();
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  // The parent may have died before the death signal was set.
  if (::getppid() != launch.parent) ::_exit(kNotStarted);
  resetSignals();
  if (connectStreams(launch)) {
    // Closes descriptors that other libraries of this process left inheritable; not every kernel has the
    // call.
    ::syscall(SYS_close_range, STDERR_FILENO + 1, UINT_MAX, CLOSE_RANGE_CLOEXEC);
    if (launch.notes >= 0) ::fcntl(launch.notes, F_SETFD, 0);
    ::execve(launch.arguments[0], launch.arguments, launch.environment);
  }
  const int error = errno;
  [[maybe_unused]] const auto written = ::write(launch.report, &error, sizeof error);
  ::_exit(kNotStarted);
}

pid_t forkProgram(const Launch& launch) {
  // No handler of this process may run in the child.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const pid_t pid = ::fork();
  if (pid == 0) becomeProgram(launch);
  const int error = errno;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  errno = error;
  return pid;
}

/// The errno that the child reports, or 0 once the program runs.
int readReport(int fd) {
  int error = 0;
  ssize_t count = 0;
  do {
    count = ::read(fd, &error, sizeof error);
  } while (count < 0 && errno == EINTR);
  return count == ssize_t{sizeof error} ? error : 0;
}

/// The number of bytes that can be read from a pipe at once.
std::size_t bytesWaiting(int fd) {
  int count = 0;
  return fd >= 0 && ::ioctl(fd, FIONREAD, &count) == 0 ? static_cast<std::size_t>(count) : 0;
}

int remainingMilliseconds(steady_clock::time_point end) {
  const auto rest = std::chrono::ceil<milliseconds>(end - steady_clock::now());
  return static_cast<int>(std::clamp<milliseconds::rep>(rest.count(), 0, INT_MAX));
}

}  // namespace

/// The progress of a run.
struct ChildProcess::Reading {
  std::vector<char> buffer = std::vector<char>(kChunk);
  std::size_t total = 0;
  bool cut = false;
  bool ended = false;
  std::size_t owed = 0;  // bytes of an ended child that are not read yet
  Descriptor process;    // readable once the child has ended; none on old kernels
  std::optional<steady_clock::time_point> drainEnd;
  std::optional<steady_clock::time_point> killTime;

  [[nodiscard]] int timeout() const {
    int limit = -1;
    const auto atMost = [&limit](int candidate) {
      limit = limit < 0 ? candidate : std::min(limit, candidate);
    };
    if (!ended && process.get() < 0) atMost(kLookMilliseconds);
    if (drainEnd) atMost(remainingMilliseconds(*drainEnd));
    if (killTime) atMost(remainingMilliseconds(*killTime));
    return limit;
  }
};

ChildProcess::ChildProcess(const std::string& path, const std::vector<std::string>& arguments,
                           ChildLimits limits, const ChildNotes* notes)
    : limits_(limits) {
  if (!path.starts_with('/')) {
    startError_ = ENOENT;
  } else if (hasZeroByte(path) || std::any_of(arguments.begin(), arguments.end(), hasZeroByte)) {
    startError_ = EINVAL;
  } else {
    startError_ = launch(path, arguments, notes != nullptr ? notes->descriptor() : -1);
  }
}

ChildProcess::~ChildProcess() {
  if (output_ >= 0) ::close(output_);
  if (pid_ == 0) return;
  sendSignal(SIGKILL);
  reap();
}

int ChildProcess::launch(const std::string& path, const std::vector<std::string>& arguments, int notes) {
  std::vector<std::string> argumentTexts{path};
  argumentTexts.insert(argumentTexts.end(), arguments.begin(), arguments.end());
  std::vector<std::string> environmentTexts = childEnvironment(notes);
  const std::vector<char*> argumentList = pointers(argumentTexts);
  const std::vector<char*> environmentList = pointers(environmentTexts);

  Pipe output;
  Pipe report;
  if (!output.open() || !report.open()) return errno;
  const pid_t pid = forkProgram({argumentList.data(), environmentList.data(), output.writing.get(),
                                 report.writing.get(), notes, ::getpid()});
  if (pid < 0) return errno;
  output.writing.close();
  report.writing.close();
  pid_ = pid;
  const int error = readReport(report.reading.get());
  if (error != 0) {
    reap();
  } else {
    output_ = output.reading.release();
  }
  return error;
}

ChildProcess::Ending ChildProcess::run(const OutputHandler& onOutput) {
  if (pid_ == 0) return {};
  Reading reading;
  reading.process = Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
  while (!reading.ended || output_ >= 0) {
    std::array<pollfd, 2> events{{{output_, POLLIN, 0}, {reading.process.get(), POLLIN, 0}}};
    const int ready = ::poll(events.data(), events.size(), reading.timeout());
    if (ready > 0 && events[0].revents != 0) {
      readSome(reading, onOutput);
    } else if (ready >= 0) {
      reading.owed = 0;  // all available bytes were read
    }
    keepLimits(reading);
  }
  Ending ending = reap();
  ending.outputCut = reading.cut;
  return ending;
}

void ChildProcess::readSome(Reading& reading, const OutputHandler& onOutput) {
  const ssize_t count = ::read(output_, reading.buffer.data(), reading.buffer.size());
  if (count < 0 && errno == EINTR) return;
  if (count <= 0) {
    ::close(std::exchange(output_, -1));
    return;
  }
  reading.owed -= std::min(reading.owed, static_cast<std::size_t>(count));
  const std::size_t room = limits_.output - reading.total;
  const std::size_t kept = std::min(static_cast<std::size_t>(count), room);
  reading.total += kept;
  if (kept > 0 && !onOutput({reading.buffer.data(), kept})) interrupt();
  if (kept == static_cast<std::size_t>(count) || reading.cut) return;
  reading.cut = true;
  reading.killTime = steady_clock::now() + limits_.killAfter;
  interrupt();
}

void ChildProcess::keepLimits(Reading& reading) {
  if (!reading.ended && hasEnded()) {
    reading.ended = true;
    reading.process.close();
    reading.killTime.reset();
    reading.owed = bytesWaiting(output_);
    reading.drainEnd = steady_clock::now() + limits_.drain;
  }
  const auto now = steady_clock::now();
  // Output of the child itself is read to its end, even after the drain time.
  const bool drained = reading.drainEnd && reading.owed == 0 && now >= *reading.drainEnd;
  if (output_ >= 0 && drained) ::close(std::exchange(output_, -1));
  if (reading.killTime && now >= *reading.killTime) {
    reading.killTime.reset();
    sendSignal(SIGKILL);
  }
}

void ChildProcess::interrupt() { sendSignal(SIGINT); }

void ChildProcess::kill() {
  const std::lock_guard lock(mutex_);
  // The child leads its group; a process that it started would keep the output open.
  if (pid_ > 0) ::kill(-pid_, SIGKILL);
}

void ChildProcess::sendSignal(int signal) {
  const std::lock_guard lock(mutex_);
  if (pid_ > 0) ::kill(pid_, signal);
}

/// Does not reap the child; reap() does. A child that other code has waited for has ended too.
bool ChildProcess::hasEnded() const {
  siginfo_t info{};
  if (::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) != 0)
    return errno == ECHILD;
  return info.si_pid == pid_;
}

ChildProcess::Ending ChildProcess::reap() {
  // Waiting must not hold the lock, or no thread could interrupt the child meanwhile.
  siginfo_t info{};
  while (::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
  }
  const std::lock_guard lock(mutex_);
  int status = 0;
  pid_t waited = 0;
  do {
    waited = ::waitpid(pid_, &status, 0);
  } while (waited < 0 && errno == EINTR);
  Ending ending;
  if (waited == pid_ && WIFEXITED(status)) ending.exitStatus = WEXITSTATUS(status);
  if (waited == pid_ && WIFSIGNALED(status)) ending.signal = WTERMSIG(status);
  pid_ = 0;
  return ending;
}

}  // namespace sorrel
