#pragma once

#include <chrono>
#include <functional>

namespace sorrel::test {

/// The longest that a test waits for an event that should happen at once. Reached only by a failing test.
inline constexpr std::chrono::milliseconds kPatience{20'000};

/// Runs the main queue on the calling thread until `condition` is true; false after kPatience.
[[nodiscard]] bool runMainLoopUntil(const std::function<bool()>& condition);

/// Runs everything that was posted to the main queue before this call; false after kPatience.
bool drainMainQueue();

}  // namespace sorrel::test
