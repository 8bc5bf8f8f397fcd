#include "Tests/Support/RecordingQueue.hpp"

#include <future>
#include <limits>
#include <mutex>
#include <utility>
#include <vector>

#include "Tests/Support/MainLoop.hpp"

namespace sorrel::test {

struct RecordingQueue::Notes {
  mutable std::mutex mutex;
  std::size_t refusalsLeft = 0;
  WeftRunError error = WeftRunError::QueueFull;
  bool holding = false;
  std::vector<std::pair<Failure, WeftRunError>> held;
  std::size_t accepted = 0;
  std::size_t refused = 0;
};

RecordingQueue::RecordingQueue(WeftQOS qos) : WeftSerialQueue(qos), notes_(std::make_unique<Notes>()) {}

RecordingQueue::~RecordingQueue() = default;

void RecordingQueue::submit(Task task, Failure failure) {
  std::unique_lock lock(notes_->mutex);
  if (notes_->refusalsLeft == 0) {
    ++notes_->accepted;
    lock.unlock();
    WeftSerialQueue::submit(std::move(task), std::move(failure));
    return;
  }
  --notes_->refusalsLeft;
  ++notes_->refused;
  const WeftRunError error = notes_->error;
  if (notes_->holding) {
    notes_->held.emplace_back(std::move(failure), error);
    return;
  }
  lock.unlock();
  if (failure) failure(error);
}

void RecordingQueue::refuseNext(std::size_t count, WeftRunError error) {
  const std::lock_guard lock(notes_->mutex);
  notes_->refusalsLeft = count;
  notes_->error = error;
}

void RecordingQueue::refuseAll(WeftRunError error) {
  refuseNext(std::numeric_limits<std::size_t>::max(), error);
}

void RecordingQueue::acceptAgain() { refuseNext(0); }

void RecordingQueue::holdFailures() {
  const std::lock_guard lock(notes_->mutex);
  notes_->holding = true;
}

std::size_t RecordingQueue::deliverFailures() {
  std::vector<std::pair<Failure, WeftRunError>> held;
  {
    const std::lock_guard lock(notes_->mutex);
    held.swap(notes_->held);
  }
  for (const auto& [failure, error] : held) failure(error);
  return held.size();
}

std::size_t RecordingQueue::accepted() const {
  const std::lock_guard lock(notes_->mutex);
  return notes_->accepted;
}

std::size_t RecordingQueue::refused() const {
  const std::lock_guard lock(notes_->mutex);
  return notes_->refused;
}

bool drain(WeftSerialQueue& queue) {
  const auto reached = std::make_shared<std::promise<void>>();
  std::future<void> done = reached->get_future();
  bool taken = true;
  // Bypasses any refusal of a test queue: the queue's own order matters.
  queue.WeftSerialQueue::submit([reached] { reached->set_value(); },
                                [&taken](WeftRunError) { taken = false; });
  return taken && done.wait_for(kPatience) == std::future_status::ready;
}

}  // namespace sorrel::test
