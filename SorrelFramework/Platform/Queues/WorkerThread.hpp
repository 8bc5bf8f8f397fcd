#pragma once

#include <functional>
#include <thread>

#include "SorrelFramework/Platform/Base/WeftQOS.hpp"

namespace sorrel {

/// Starts a thread of the framework: called `name` (15 bytes at most) in the tools of the system,
/// asynchronous signals left to the application's own threads, nice value and class of input and output as
/// `qos` asks, counted from those of the process. A thread that is not joinable if the system has none to
/// give.
std::thread startWorkerThread(const char* name, WeftQOS qos, std::function<void()> body);

}  // namespace sorrel
