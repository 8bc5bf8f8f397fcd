#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>

#include "SorrelFramework/Platform/Queues/GlobalQueue.hpp"

namespace sorrel::test {

/// Keeps threads of the global queue busy until it is destroyed.
class BusyThreads {
 public:
  explicit BusyThreads(unsigned count) : shared_(std::make_shared<Shared>()) {
    for (unsigned i = 0; i < count; ++i) {
      GlobalQueue::submit([shared = shared_] {
        std::unique_lock lock(shared->mutex);
        ++shared->busy;
        shared->changed.notify_all();
        shared->changed.wait(lock, [&] { return shared->released; });
      });
    }
    std::unique_lock lock(shared_->mutex);
    shared_->changed.wait(lock, [&] { return shared_->busy == count; });
  }
  ~BusyThreads() {
    const std::lock_guard lock(shared_->mutex);
    shared_->released = true;
    shared_->changed.notify_all();
  }
  BusyThreads(const BusyThreads&) = delete;
  BusyThreads& operator=(const BusyThreads&) = delete;

 private:
  struct Shared {
    std::mutex mutex;
    std::condition_variable changed;
    unsigned busy = 0;
    bool released = false;
  };
  std::shared_ptr<Shared> shared_;
};

}  // namespace sorrel::test
