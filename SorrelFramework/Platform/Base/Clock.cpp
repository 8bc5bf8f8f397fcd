#include "SorrelFramework/Platform/Base/Clock.hpp"

#include <cerrno>
#include <ctime>
#include <memory>
#include <mutex>
#include <utility>

namespace sorrel {
namespace {

using Wait = std::function<void(std::uint64_t)>;

struct Replacement {
  std::mutex mutex;
  std::shared_ptr<const Wait> wait;
};

Replacement& replacement() {
  static Replacement& shared = *new Replacement;  // background threads may wait while the process ends
  return shared;
}

std::shared_ptr<const Wait> currentReplacement() {
  const std::lock_guard lock(replacement().mutex);
  return replacement().wait;
}

void reallyWait(std::uint64_t microseconds) {
  timespec rest{};
  rest.tv_sec = static_cast<std::time_t>(microseconds / 1'000'000);
  rest.tv_nsec = static_cast<long>(microseconds % 1'000'000) * 1000;
  while (::clock_nanosleep(CLOCK_MONOTONIC, 0, &rest, &rest) == EINTR) {
  }
}

}  // namespace

void waitMicroseconds(std::uint64_t microseconds) {
  if (const auto wait = currentReplacement()) {
    (*wait)(microseconds);
  } else {
    reallyWait(microseconds);
  }
}

void setWaitForTesting(std::function<void(std::uint64_t)> wait) {
  auto shared = wait ? std::make_shared<const Wait>(std::move(wait)) : nullptr;
  const std::lock_guard lock(replacement().mutex);
  replacement().wait.swap(shared);
}

}  // namespace sorrel
