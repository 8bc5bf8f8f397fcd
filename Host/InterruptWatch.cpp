#include "Host/InterruptWatch.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "Host/ExitStatus.hpp"
#include "SorrelFramework/Platform/Queues/MainQueue.hpp"

namespace sorrel::cli {

InterruptWatch::InterruptWatch() {
  sigset_t interrupt;
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGINT);
  pthread_sigmask(SIG_BLOCK, &interrupt, nullptr);
  signals_ = ::signalfd(-1, &interrupt, SFD_CLOEXEC | SFD_NONBLOCK);
  finish_ = ::eventfd(0, EFD_CLOEXEC);
}

InterruptWatch::~InterruptWatch() {
  if (thread_.joinable()) {
    const std::uint64_t one = 1;
    // An eventfd at 0 always accepts a 1.
    [[maybe_unused]] const ssize_t written = ::write(finish_, &one, sizeof one);
    thread_.join();
  }
  if (signals_ >= 0) ::close(signals_);
  if (finish_ >= 0) ::close(finish_);
}

void InterruptWatch::start(std::function<void()> stop) {
  stop_ = std::move(stop);
  const bool alreadyStopped = takeSignal();
  if (alreadyStopped) interrupt(false);
  thread_ = std::thread([this, alreadyStopped] { watch(alreadyStopped); });
}

void InterruptWatch::interrupt(bool again) const {
  if (again || !stop_) std::_Exit(static_cast<int>(ExitStatus::Stopped));
  MainQueue::post(stop_);
}

void InterruptWatch::watch(bool stopped) {
  std::array<pollfd, 2> sources = {{{signals_, POLLIN, 0}, {finish_, POLLIN, 0}}};
  for (;;) {
    if (::poll(sources.data(), sources.size(), -1) < 0 && errno != EINTR) return;
    if (sources[1].revents != 0) return;
    if (!takeSignal()) continue;
    interrupt(stopped);
    stopped = true;
  }
}

bool InterruptWatch::takeSignal() const {
  signalfd_siginfo signal{};
  return ::read(signals_, &signal, sizeof signal) == static_cast<ssize_t>(sizeof signal);
}

}  // namespace sorrel::cli
