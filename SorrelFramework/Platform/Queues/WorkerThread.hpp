#pragma once

#include <functional>
#include <thread>

#include "SorrelFramework/Platform/Base/WeftQOS.hpp"

namespace sorrel {

/// Starts a thread of the framework: named `name` (at most 15 bytes) in the tools of the system, asynchronous
/// signals left to the application's own threads, nice value and I/O class determined by `qos`, relative to
/// those of the process. Returns a thread that is not joinable if the system can't create one.
std::thread startWorkerThread(const char* name, WeftQOS qos, std::function<void()> body);

}  // namespace sorrel
