#include "Tests/Support/MainLoop.hpp"

#include <memory>

#include "SorrelFramework/Platform/Queues/MainQueue.hpp"

namespace sorrel::test {

bool runMainLoopUntil(const std::function<bool()>& condition) {
  return MainQueue::runUntil(condition, kPatience);
}

bool drainMainQueue() {
  const auto reached = std::make_shared<bool>(false);
  MainQueue::post([reached] { *reached = true; });
  return runMainLoopUntil([reached] { return *reached; });
}

}  // namespace sorrel::test
