#pragma once

#include <functional>
#include <string>

#include "SorrelFramework/Platform/FileDescriptor.hpp"

namespace sorrel {

/// Opens the folder at `path` for reading, for the root of a walk: links are followed, but below the root of
/// a mounted macOS volume none that leads out of it, since its "/" is not this machine's. Sets errno on
/// failure; a path with a NUL in it names nothing (ENOENT). Waits for a descriptor that other walks have
/// until `isStopped` (OpenFolderLimit).
FileDescriptor openFolder(const std::string& path, const std::function<bool()>& isStopped = {});

}  // namespace sorrel
