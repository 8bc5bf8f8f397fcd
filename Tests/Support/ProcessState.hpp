#pragma once

#include <cstddef>

namespace sorrel::test {

/// Number of descriptors that this process has open.
std::size_t openDescriptors();

/// Lowers the limit of this process permanently, so that it can open exactly this many more files. False if
/// that failed.
bool leaveDescriptors(unsigned count);

/// True if this process has a child, alive or not yet waited for.
bool hasChildProcesses();

}  // namespace sorrel::test
