#include "SorrelFramework/Platform/Queues/Countdown.hpp"

#include <utility>

namespace sorrel {

Countdown::Countdown(std::size_t count, std::function<void()> then, std::shared_ptr<WeftSerialQueue> queue)
    : left_(count), then_(std::move(then)), queue_(std::move(queue)) {}

std::shared_ptr<Countdown> Countdown::from(std::size_t count, std::function<void()> then,
                                           std::shared_ptr<WeftSerialQueue> queue) {
  const std::shared_ptr<Countdown> countdown(new Countdown(count, std::move(then), std::move(queue)));
  if (count == 0) countdown->finish();
  return countdown;
}

void Countdown::arrive() {
  if (--left_ == 0) finish();
}

void Countdown::finish() {
  auto then = std::exchange(then_, nullptr);
  if (queue_) return submitWithRetry(queue_, std::move(then));
  then();
}

}  // namespace sorrel
