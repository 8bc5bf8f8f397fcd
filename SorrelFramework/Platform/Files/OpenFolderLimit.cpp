#include "SorrelFramework/Platform/Files/OpenFolderLimit.hpp"

#include <fcntl.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace sorrel {
namespace {

using namespace std::chrono_literals;

/// Interval at which a waiting walk checks for a stop.
constexpr auto kSlice = 10ms;
/// A walk gives up after so many slices in which no walk returned a descriptor.
constexpr int kPatience = 100;

struct State {
  std::atomic<std::size_t> most{OpenFolderLimit::kMost};
  std::atomic<std::size_t> walks{0};
  std::atomic<std::size_t> waiting{0};
  std::atomic<int> patience{kPatience};
  std::mutex mutex;
  std::condition_variable closed;
  std::atomic<std::uint64_t> closures{0};
};

/// Never destroyed: walks may go on while the process ends.
State& state() {
  static State& state = *new State;
  return state;
}

/// Waits until a walk has returned a descriptor since `seen` closures, one slice at most; false if none did.
bool awaitClosure(std::uint64_t seen) {
  State& shared = state();
  std::unique_lock lock(shared.mutex);
  ++shared.waiting;
  const bool isClosed =
      shared.closed.wait_for(lock, kSlice, [&shared, seen] { return shared.closures.load() != seen; });
  --shared.waiting;
  return isClosed;
}

/// The time that a walk has waited for descriptors.
class Wait {
 public:
  Wait(std::size_t ownWalks, const std::function<bool()>& isStopped)
      : ownWalks_(ownWalks), isStopped_(isStopped) {}

  /// To be called before each attempt, so that every descriptor returned from then on is noticed.
  void begin() { seen_ = state().closures.load(); }
  /// To be called after a failed attempt: true if another attempt is worthwhile.
  [[nodiscard]] bool goOn() {
    State& shared = state();
    // Without another walk, no descriptor can be returned.
    if (shared.walks.load() <= ownWalks_ || (isStopped_ && isStopped_())) return false;
    idle_ = awaitClosure(seen_) ? 0 : idle_ + 1;
    if (idle_ < shared.patience.load()) return true;
    shared.patience.store(1);  // the next folder does not wait that long again
    return false;
  }
  void succeed() {
    if (idle_ > 0) state().patience.store(kPatience);
  }

 private:
  std::size_t ownWalks_;
  const std::function<bool()>& isStopped_;
  std::uint64_t seen_ = 0;
  int idle_ = 0;
};

}  // namespace

std::size_t OpenFolderLimit::most() noexcept { return state().most.load(std::memory_order_relaxed); }

void OpenFolderLimit::lower() noexcept {
  std::atomic<std::size_t>& most = state().most;
  std::size_t now = most.load();
  while (now > 1 && !most.compare_exchange_weak(now, now / 2)) {
  }
}

OpenFolderLimit::Walk::Walk() { ++state().walks; }

OpenFolderLimit::Walk::~Walk() {
  State& shared = state();
  if (--shared.walks == 0) {
    shared.most.store(kMost);
    shared.patience.store(kPatience);
  }
  wakeWaiting();
}

void OpenFolderLimit::wakeWaiting() {
  State& shared = state();
  ++shared.closures;
  if (shared.waiting.load() == 0) return;
  const std::lock_guard lock(shared.mutex);
  shared.closed.notify_all();
}

FileDescriptor OpenFolderLimit::openSparing(const std::function<FileDescriptor()>& open,
                                            const std::function<bool()>& giveBack,
                                            const std::function<bool()>& isStopped) {
  Wait wait(1, isStopped);
  for (;;) {
    wait.begin();
    FileDescriptor opened = open();
    if (opened.isOpen()) wait.succeed();
    if (opened.isOpen() || !isLackOfDescriptors(errno)) return opened;
    const int error = errno;
    lower();
    if (giveBack() || wait.goOn()) continue;
    errno = error;
    return {};
  }
}

FileDescriptor OpenFolderLimit::openFirst(const std::function<FileDescriptor()>& open,
                                          const std::function<bool()>& isStopped) {
  Wait wait(0, isStopped);
  for (;;) {
    wait.begin();
    FileDescriptor opened = open();
    if (leavesRoom(opened, errno)) return opened;
    const bool isLast = opened.isOpen();
    opened.reset();
    lower();
    if (wait.goOn()) continue;
    // A walk on its own can at least read this folder.
    if (isLast) return open();
    errno = EMFILE;
    return {};
  }
}

bool OpenFolderLimit::isLackOfDescriptors(int error) noexcept { return error == EMFILE || error == ENFILE; }

bool OpenFolderLimit::leavesRoom(const FileDescriptor& opened, int error) {
  if (!opened.isOpen()) return !isLackOfDescriptors(error);
  const FileDescriptor second(::fcntl(opened.get(), F_DUPFD_CLOEXEC, 0));
  return second.isOpen() || !isLackOfDescriptors(errno);
}

}  // namespace sorrel
