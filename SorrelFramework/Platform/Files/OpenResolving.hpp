#pragma once

#include <cstdint>
#include <optional>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel {

/// openat2(2): opens `name` in the open folder `folder` and keeps the rules `resolve` (RESOLVE_NO_SYMLINKS
/// and so on, from <linux/openat2.h>) for every component. A closed descriptor, with errno, if it fails;
/// nothing where the kernel or a sandbox does not have the call.
std::optional<FileDescriptor> openResolving(int folder, const char* name, int flags, std::uint64_t resolve);

}  // namespace sorrel
