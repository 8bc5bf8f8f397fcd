#pragma once

#include <string>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel::test {

/// Mounts a FUSE file system on the folder `point` whose server never answers: every process that accesses it
/// hangs until it is killed. Gone when the descriptor is closed; not open if the system does not allow it.
/// For a child with a mount table of its own.
FileDescriptor mountSilentFileSystem(const std::string& point);

}  // namespace sorrel::test
