#include "Tests/Support/VirtualClock.hpp"

#include <mutex>
#include <utility>

#include "SorrelFramework/Platform/Base/Clock.hpp"

namespace sorrel::test {

struct VirtualClock::Notes {
  std::mutex mutex;
  std::vector<std::uint64_t> waits;
};

VirtualClock::VirtualClock() : VirtualClock(nullptr) {}

VirtualClock::VirtualClock(std::function<void(std::uint64_t)> onWait) : notes_(std::make_shared<Notes>()) {
  setWaitForTesting([notes = notes_, onWait = std::move(onWait)](std::uint64_t microseconds) {
    {
      const std::lock_guard lock(notes->mutex);
      notes->waits.push_back(microseconds);
    }
    if (onWait) onWait(microseconds);
  });
}

VirtualClock::~VirtualClock() { setWaitForTesting(nullptr); }

std::vector<std::uint64_t> VirtualClock::waits() const {
  const std::lock_guard lock(notes_->mutex);
  return notes_->waits;
}

}  // namespace sorrel::test
