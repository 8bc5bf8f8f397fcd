#include "SorrelFramework/Platform/Queues/WorkerThread.hpp"

#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <system_error>
#include <utility>

namespace sorrel {
namespace {

constexpr int kUtilityNice = 5;
constexpr int kBackgroundNice = 15;
constexpr int kMostNice = 19;

// From linux/ioprio.h, whose later versions compile as C only.
constexpr int kIoprioWhoProcess = 1;
constexpr int kIoprioClassIdle = 3;
constexpr int kIoprioClassShift = 13;

/// Blocks the signals that a new thread must not handle. Signals raised by a fault of the thread itself stay
/// unblocked, so that crash handlers see them.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t blocked;
    sigfillset(&blocked);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS, SIGPROF}) {
      sigdelset(&blocked, fault);
    }
    pthread_sigmask(SIG_SETMASK, &blocked, &before_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_{};
};

/// Relative to the process, which may itself run at a lower priority than usual.
void giveWay(WeftQOS qos) {
  if (qos != WeftQOS::Utility && qos != WeftQOS::Background) return;
  const auto thread = static_cast<id_t>(::gettid());
  const int own = ::getpriority(PRIO_PROCESS, static_cast<id_t>(::getpid()));
  const int more = qos == WeftQOS::Background ? kBackgroundNice : kUtilityNice;
  // Best effort: after a failure the thread keeps the priority of the others.
  ::setpriority(PRIO_PROCESS, thread, std::min(own + more, kMostNice));
  if (qos == WeftQOS::Background) {
    ::syscall(SYS_ioprio_set, kIoprioWhoProcess, thread, kIoprioClassIdle << kIoprioClassShift);
  }
}

}  // namespace

std::thread startWorkerThread(const char* name, WeftQOS qos, std::function<void()> body) {
  const SignalsBlocked blocked;
  try {
    return std::thread([name, qos, run = std::move(body)] {
      pthread_setname_np(pthread_self(), name);
      giveWay(qos);
      run();
    });
  } catch (const std::system_error&) {
    return {};
  }
}

}  // namespace sorrel
