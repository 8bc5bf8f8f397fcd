#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace sorrel {

/// Shares the work of one walk among the threads that are currently free. Each member works on a subtree of
/// its own and gives parts of it away when another member waits. The owner of the walk works too, and helpers
/// join only once a thread runs them, so no member ever waits for a task that has not started.
template <class Work>
class WalkTeam {
 public:
  /// For a helper: false if the walk is over. A member that joined calls next() for its first piece of work.
  [[nodiscard]] bool join() {
    const std::lock_guard lock(mutex_);
    if (over_) return false;
    ++busy_;
    return true;
  }

  /// Called by a member that has finished its work. Returns the next piece, or nothing when all work of all
  /// members is done.
  [[nodiscard]] std::optional<Work> next() {
    std::unique_lock lock(mutex_);
    --busy_;
    if (gifts_.empty() && busy_ == 0) {
      over_ = true;
      changed_.notify_all();
      return std::nullopt;
    }
    ++wanted_;
    changed_.wait(lock, [this] { return !gifts_.empty() || over_; });
    --wanted_;
    if (gifts_.empty()) return std::nullopt;
    std::optional<Work> work(std::move(gifts_.back()));
    gifts_.pop_back();
    offered_.store(gifts_.size(), std::memory_order_relaxed);
    ++busy_;
    return work;
  }

  /// True while more members wait than pieces are available. Cheap.
  [[nodiscard]] bool wantsWork() const noexcept {
    return wanted_.load(std::memory_order_relaxed) > offered_.load(std::memory_order_relaxed);
  }
  void give(Work work) {
    const std::lock_guard lock(mutex_);
    gifts_.push_back(std::move(work));
    offered_.store(gifts_.size(), std::memory_order_relaxed);
    changed_.notify_one();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Work> gifts_;
  std::size_t busy_ = 1;  // starts with the owner
  bool over_ = false;
  std::atomic<std::size_t> wanted_{0};
  std::atomic<std::size_t> offered_{0};
};

}  // namespace sorrel
