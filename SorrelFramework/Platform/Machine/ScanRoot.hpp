#pragma once

#include <functional>
#include <string>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel {

/// Opens the folder at `path` for reading, as the root of a walk: links are followed; below the root of a
/// mounted macOS volume they are resolved as its own system does: absolute ones begin at that root, and none
/// leads above it. Sets errno on failure; a path with a NUL in it names nothing (ENOENT). Waits for a
/// descriptor that other walks hold until `isStopped` (OpenFolderLimit).
FileDescriptor openFolder(const std::string& path, const std::function<bool()>& isStopped = {});

}  // namespace sorrel
