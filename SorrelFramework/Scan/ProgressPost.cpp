#include "SorrelFramework/Scan/ProgressPost.hpp"

#include <utility>

#include "SorrelFramework/Platform/Queues/MainQueue.hpp"
#include "SorrelFramework/Scan/PathText.hpp"

namespace sorrel {
namespace {

constexpr std::size_t kMostInOneBlock = 4096;
constexpr std::chrono::milliseconds kInterval{50};

}  // namespace

void ProgressPost::add(const URL& url, std::int64_t size) {
  if (!progress_ || !*progress_) return;
  items_.push_back({url, size});
  if (items_.size() >= kMostInOneBlock) flush();
}

void ProgressPost::tick() {
  if (!items_.empty() && Clock::now() - posted_ >= kInterval) flush();
}

void ProgressPost::flush() {
  posted_ = Clock::now();
  if (items_.empty()) return;
  MainQueue::post([progress = progress_, items = std::exchange(items_, {})] {
    for (const Item& item : items) (*progress)(pathTextOf(item.url), item.size);
  });
}

}  // namespace sorrel
