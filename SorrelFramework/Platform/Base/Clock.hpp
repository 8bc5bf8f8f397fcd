#pragma once

#include <cstdint>
#include <functional>

namespace sorrel {

/// Waits the given number of microseconds on the calling thread. Every wait of the framework goes through
/// here, so that a test can put virtual time in its place.
void waitMicroseconds(std::uint64_t microseconds);

/// Replaces the wait for tests; an empty function brings the real one back. Not while scans run.
void setWaitForTesting(std::function<void(std::uint64_t)> wait);

}  // namespace sorrel
