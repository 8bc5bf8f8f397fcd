#pragma once

#include <string>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel::test {

/// Mounts a FUSE file system on the folder `point` whose server never answers: whoever asks it anything hangs
/// until killed. Gone when the descriptor is closed; not open where the system can't have one. For a child
/// with a mount table of its own.
FileDescriptor mountSilentFileSystem(const std::string& point);

}  // namespace sorrel::test
