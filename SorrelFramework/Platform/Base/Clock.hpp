#pragma once

#include <cstdint>
#include <functional>

namespace sorrel {

/// Waits the given number of microseconds on the calling thread. Every wait of the framework goes through
/// here, so that a test can replace it by virtual time.
void waitMicroseconds(std::uint64_t microseconds);

/// Replaces the wait for tests; an empty function restores the real one. Must not be called while scans run.
void setWaitForTesting(std::function<void(std::uint64_t)> wait);

}  // namespace sorrel
