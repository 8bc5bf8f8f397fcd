#include "Tests/Support/SystemCallFaults.hpp"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <thread>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel::test {
namespace {

constexpr int kNotYet = -1;
constexpr int kImpossible = -2;
constexpr std::size_t kMostCalls = 1024;

/// The values shared by the two sides are independent of each other. For any other order the thread sanitizer
/// takes a lock, and wakes waiting threads by a call that must be checked first.
constexpr auto kOrder = std::memory_order_relaxed;

/// Makes this thread, and those that it starts, request permission before each `call` (before every call if
/// it is negative). Returns the descriptor for the requests; kImpossible if the system refuses.
int askBefore(int call) {
  std::array<sock_filter, 4> filter = {{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  }};
  if (call < 0) filter[0] = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF);
  const sock_fprog program{filter.size(), filter.data()};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return kImpossible;
  const long listener =
      ::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program);
  return listener < 0 ? kImpossible : static_cast<int>(listener);
}

/// Answers the requesting threads. It must not wait for anything that one of them may hold, including the
/// allocator's locks, so it keeps its counts in place.
class Supervisor {
 public:
  Supervisor(int listener, const CallFault& fault, const std::atomic<pid_t>* program = nullptr)
      : listener_(listener), fault_(fault), program_(program) {}

  /// Runs until the last thread has ended.
  void serve() {
    for (;;) {
      pollfd event{listener_, POLLIN, 0};
      if (::poll(&event, 1, -1) > 0) {
        if ((event.revents & POLLIN) != 0) {
          serveOne();
        } else if ((event.revents & POLLHUP) != 0) {
          return;
        }
      }
    }
  }

  [[nodiscard]] std::uint64_t faults() const { return faults_; }
  [[nodiscard]] std::uint64_t calls() const { return all_; }
  [[nodiscard]] CallCounts counts() const {
    CallCounts counts;
    for (std::size_t call = 0; call < counts_.size(); ++call) {
      if (counts_[call] != 0) counts.emplace(static_cast<int>(call), counts_[call]);
    }
    return counts;
  }

 private:
  void serveOne() {
    seccomp_notif request{};
    if (::ioctl(listener_, SECCOMP_IOCTL_NOTIF_RECV, &request) != 0) return;
    seccomp_notif_resp answer{};
    answer.id = request.id;
    answer.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    const auto call = static_cast<std::size_t>(request.data.nr);
    if (call < counts_.size()) ++counts_[call];
    if (isDue(static_cast<pid_t>(request.pid))) {
      ++faults_;
      if (fault_.meanwhile) {
        fault_.meanwhile();
      } else {
        spoil(request, answer);
      }
    }
    ::ioctl(listener_, SECCOMP_IOCTL_NOTIF_SEND, &answer);
  }

  void spoil(const seccomp_notif& request, seccomp_notif_resp& answer) const {
    const bool isHere = program_ == nullptr;
    if (fault_.error == CallFault::kKilled) {
      ::kill(isHere ? ::getpid() : static_cast<pid_t>(request.pid), SIGKILL);
    }
    // The descriptors are those of this thread too.
    if (isHere && request.data.nr == SYS_close) ::close(static_cast<int>(request.data.args[0]));
    answer.flags = 0;
    answer.error = -fault_.error;
  }

  bool isDue(pid_t process) {
    if (program_ != nullptr) {
      if (process == program_->load(kOrder)) return false;
      if (process != last_) all_ = 0;
      last_ = process;
    }
    ++all_;
    if (all_ <= fault_.when || fault_.step == 0) return all_ == fault_.when;
    return fault_.when != 0 && (all_ - fault_.when) % fault_.step == 0;
  }

  const int listener_;
  const CallFault fault_;
  const std::atomic<pid_t>* const program_;  // whose children are watched; null to watch this process
  pid_t last_ = -1;
  std::uint64_t all_ = 0;
  std::uint64_t faults_ = 0;
  std::array<std::uint64_t, kMostCalls> counts_{};
};

/// Runs `work` on a thread whose calls, and those of everything it starts, are sent to `serve` before they
/// are made.
template <class Serve>
bool watch(int call, const std::function<void()>& work, const Serve& serve) {
  std::atomic<int> asking{kNotYet};
  std::thread thread([&] {
    const int listener = askBefore(call);
    asking.store(listener, kOrder);  // from here on a call may have to wait for the supervisor
    if (listener != kImpossible) work();
  });
  int told = kNotYet;
  while ((told = asking.load(kOrder)) == kNotYet) std::this_thread::yield();
  const bool isPossible = told != kImpossible;
  if (isPossible) {
    const FileDescriptor listener(told);
    serve(listener.get());
  }
  thread.join();
  return isPossible;
}

}  // namespace

std::optional<CallCounts> runWithFault(const CallFault& fault, const std::function<void()>& work) {
  std::optional<CallCounts> counts;
  watch(fault.call, work, [&](int listener) {
    Supervisor supervisor(listener, fault);
    supervisor.serve();
    counts = supervisor.counts();
  });
  return counts;
}

std::optional<FaultyRun> runProgramWithFault(const CallFault& fault, char* const* arguments) {
  FaultyRun run;
  std::atomic<pid_t> program{-1};
  const auto start = [&] {
    const pid_t child = ::fork();
    if (child == 0) {
      ::raise(SIGSTOP);  // until the supervisor knows it
      ::execv(arguments[0], arguments);
      ::_exit(127);
    }
    ::waitpid(child, &run.status, WUNTRACED);
    program.store(child, kOrder);
    ::kill(child, SIGCONT);
    ::waitpid(child, &run.status, 0);
  };
  const bool isPossible = watch(fault.call, start, [&](int listener) {
    Supervisor supervisor(listener, fault, &program);
    supervisor.serve();
    run.faults = supervisor.faults();
    run.calls = supervisor.calls();
  });
  return isPossible ? std::optional(run) : std::nullopt;
}

}  // namespace sorrel::test
