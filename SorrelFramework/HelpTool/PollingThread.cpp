#include "SorrelFramework/HelpTool/PollingThread.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <deque>
#include <mutex>
#include <system_error>
#include <utility>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel {

struct PollingThread::State {
  std::mutex mutex;
  std::deque<std::function<void()>> tasks;
  bool isEnding = false;
  std::atomic<std::thread::id> id;
  FileDescriptor wake{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  Source source;

  void ring() const {
    const std::uint64_t one = 1;
    // Fails only when the counter is full, and then the thread is woken already.
    [[maybe_unused]] const ssize_t written = ::write(wake.get(), &one, sizeof one);
  }

  bool hasEnded() {
    const std::lock_guard lock(mutex);
    return isEnding;
  }

  /// False if there is no task. A task may destroy the object that owns the thread.
  bool runOneTask() {
    std::function<void()> task;
    {
      const std::lock_guard lock(mutex);
      if (isEnding || tasks.empty()) return false;
      task = std::move(tasks.front());
      tasks.pop_front();
    }
    task();
    return true;
  }

  void waitForMore() const {
    const Wait wait = source.wait();
    pollfd descriptors[] = {{wake.get(), POLLIN, 0}, {wait.descriptor, wait.events, 0}};
    ::poll(descriptors, 2, wait.timeout);
    std::uint64_t rung = 0;
    [[maybe_unused]] const ssize_t count = ::read(wake.get(), &rung, sizeof rung);
  }

  void run() {
    id = std::this_thread::get_id();
    while (!hasEnded()) {
      const bool hasRun = runOneTask();
      if (hasEnded()) return;
      source.process();
      if (!hasRun && !hasEnded()) waitForTasksOrSource();
    }
  }

  void waitForTasksOrSource() {
    {
      const std::lock_guard lock(mutex);
      if (!tasks.empty() || isEnding) return;
    }
    waitForMore();
  }
};

PollingThread::PollingThread(Source source) : state_(std::make_shared<State>()) {
  if (!state_->wake.isOpen()) throw std::system_error(errno, std::generic_category());
  state_->source = std::move(source);
}

void PollingThread::start() {
  thread_ = std::thread([state = state_] { state->run(); });
}

bool PollingThread::isCurrent() const { return state_->id.load() == std::this_thread::get_id(); }

PollingThread::~PollingThread() {
  std::deque<std::function<void()>> dropped;
  {
    const std::lock_guard lock(state_->mutex);
    state_->isEnding = true;
    dropped.swap(state_->tasks);
  }
  state_->ring();
  if (!thread_.joinable()) return;
  if (isCurrent()) {
    thread_.detach();
  } else {
    thread_.join();
  }
}

void PollingThread::post(std::function<void()> task) {
  {
    const std::lock_guard lock(state_->mutex);
    if (state_->isEnding) return;
    state_->tasks.push_back(std::move(task));
  }
  state_->ring();
}

}  // namespace sorrel
