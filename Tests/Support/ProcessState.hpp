#pragma once

#include <cstddef>

namespace sorrel::test {

/// Descriptors that this process has open.
std::size_t openDescriptors();

/// True if this process has a child, alive or not yet waited for.
bool hasChildProcesses();

}  // namespace sorrel::test
