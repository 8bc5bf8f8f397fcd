#pragma once

#include <cstddef>

namespace sorrel::test {

/// Descriptors that this process has open.
std::size_t openDescriptors();

/// Lowers the limit of this process for good, so that it can open so many more files and no further one.
/// False if that failed.
bool leaveDescriptors(unsigned count);

/// True if this process has a child, alive or not yet waited for.
bool hasChildProcesses();

}  // namespace sorrel::test
