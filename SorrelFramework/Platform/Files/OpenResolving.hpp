#pragma once

#include <cstdint>
#include <optional>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel {

/// openat2(2): opens `name` in the open folder `folder` and applies the rules `resolve` (RESOLVE_NO_SYMLINKS
/// and so on, from <linux/openat2.h>) to every component. A closed descriptor, with errno, if it fails;
/// nothing if the kernel or a sandbox does not offer the call.
std::optional<FileDescriptor> openResolving(int folder, const char* name, int flags, std::uint64_t resolve);

}  // namespace sorrel
