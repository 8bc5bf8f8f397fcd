#include "Helper/Supervisor.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <utility>

namespace sorrel::helper {
namespace {

/// The only descriptor of a worker besides the standard ones.
constexpr int kPipe = 3;
constexpr std::size_t kPieceSize = std::size_t{64} << 10;

/// If the machine runs out of memory, the kernel should kill a worker before the supervisor, which must
/// report its end.
void offerToMemoryKiller() {
  const FileDescriptor score(::open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC));
  [[maybe_unused]] const ssize_t written = ::write(score.get(), "500", 3);
}

void resetSignals() {
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace

struct Supervisor::Worker {
  Worker(pid_t child, FileDescriptor end, std::size_t entries, Done callback)
      : process(child), pipe(std::move(end)), results(entries), reader(results), done(std::move(callback)) {}

  pid_t process;
  FileDescriptor pipe;
  ResultTable results;
  ResultPipeReader reader;
  Done done;
};

Supervisor::Supervisor(Run run) : run_(std::move(run)) {}

Supervisor::~Supervisor() {
  for (const auto& [id, worker] : workers_) ::kill(worker->process, SIGKILL);
}

bool Supervisor::start(std::uint64_t id, const EventJob& job, Done done) {
  std::array<int, 2> ends{-1, -1};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return false;
  FileDescriptor in(ends[0]);
  const FileDescriptor out(ends[1]);
  if (::fcntl(in.get(), F_SETFL, O_NONBLOCK) != 0) return false;
  const pid_t self = ::getpid();
  auto worker = std::make_unique<Worker>(-1, std::move(in), job.event.dictionary().size(), std::move(done));
  worker->process = ::fork();
  if (worker->process == 0) work(out.get(), self, job);
  if (worker->process < 0) return false;
  workers_.emplace(id, std::move(worker));
  return true;
}

void Supervisor::work(int pipe, pid_t supervisor, const EventJob& job) const {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  // Not left as an orphan: the supervisor may have died before the line above.
  if (::getppid() != supervisor) ::_exit(1);
  if (pipe != kPipe && ::dup2(pipe, kPipe) != kPipe) ::_exit(1);
  ::fcntl(kPipe, F_SETFD, FD_CLOEXEC);
  // The worker must not keep descriptors of the bus or of other events.
  if (::close_range(kPipe + 1, ~0U, 0) != 0) ::_exit(1);
  resetSignals();
  offerToMemoryKiller();
  try {
    ResultPipeWriter sink(kPipe);
    sink.end(run_(job, sink));
  } catch (const std::exception&) {
    ::_exit(1);
  }
  // The objects in this memory are the supervisor's: no destructor may run.
  ::_exit(0);
}

void Supervisor::kill(std::uint64_t id) {
  const pid_t worker = process(id);
  if (worker > 0) ::kill(worker, SIGKILL);
}

pid_t Supervisor::process(std::uint64_t id) const {
  const auto found = workers_.find(id);
  return found == workers_.end() ? -1 : found->second->process;
}

std::vector<int> Supervisor::descriptors() const {
  std::vector<int> all;
  for (const auto& [id, worker] : workers_) all.push_back(worker->pipe.get());
  for (const auto& [process, end] : dying_) {
    if (end.isOpen()) all.push_back(end.get());
  }
  return all;
}

void Supervisor::wait(std::span<pollfd> others, int timeout) {
  const std::vector<int> workers = descriptors();
  std::vector<pollfd> all(others.begin(), others.end());
  for (const int descriptor : workers) all.push_back({descriptor, POLLIN, 0});
  bool hasNews = false;
  int ready = 0;
  do {
    ready = ::poll(all.data(), all.size(), timeout);
    serve();
    for (std::size_t i = 0; i < others.size(); ++i) {
      others[i].revents = all[i].revents;
      hasNews = hasNews || all[i].revents != 0;
    }
  } while (ready > 0 && timeout != 0 && !hasNews && descriptors() == workers);
}

void Supervisor::serve() {
  std::vector<std::uint64_t> ids;
  for (const auto& [id, worker] : workers_) ids.push_back(id);
  for (const std::uint64_t id : ids) read(id);
  reap();
}

/// One piece, so that a busy worker does not delay the others.
void Supervisor::read(std::uint64_t id) {
  Worker& worker = *workers_.at(id);
  std::array<char, kPieceSize> piece{};
  const ssize_t got = ::read(worker.pipe.get(), piece.data(), piece.size());
  if (got < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (got > 0 && worker.reader.take({piece.data(), static_cast<std::size_t>(got)})) return;
  // The end of the pipe, or malformed bytes.
  finish(id);
}

void Supervisor::finish(std::uint64_t id) {
  const std::unique_ptr<Worker> worker = std::move(workers_.extract(id).mapped());
  ::kill(worker->process, SIGKILL);
  // Without a free descriptor the worker is reaped when another event wakes this process.
  const auto end = static_cast<int>(::syscall(SYS_pidfd_open, worker->process, 0));
  dying_.emplace(worker->process, FileDescriptor(end));
  worker->done({worker->results, worker->reader.outcome(), worker->reader.peakMemory()});
}

void Supervisor::reap() {
  std::erase_if(dying_, [](const auto& each) { return ::waitpid(each.first, nullptr, WNOHANG) != 0; });
}

}  // namespace sorrel::helper
