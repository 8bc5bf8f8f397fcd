#pragma once

#include <cstdint>
#include <optional>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel {

// How a removal opens a folder whose owner, the user, lacks permissions on it, for example a read-only folder
// of a package cache. The folder is addressed by descriptor only, so no link and no exchange of names can
// redirect a change of mode to another item.

/// Gives the owner of the open folder all three permissions if the folder belongs to `user` and lacks one
/// that the process does not have anyway. Returns the mode before the change; nothing if the mode was not
/// changed. A folder that would lose its set-group-ID bit is left alone.
std::optional<std::uint32_t> giveOwnerRights(int folder, std::uint32_t user);

/// Sets the permission bits of an open folder; also works with O_PATH.
bool setFolderMode(int folder, std::uint32_t mode);

/// Opens the folder `name` of the open folder `parent` with O_PATH, which needs no read permission; follows
/// no link and enters no mount point.
FileDescriptor holdFolderIn(int parent, const char* name);

}  // namespace sorrel
