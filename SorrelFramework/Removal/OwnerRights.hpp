#pragma once

#include <cstdint>
#include <optional>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel {

// How a removal opens a folder that its owner, the user, has closed to everybody: as on a read-only folder of
// a package cache. The folder is named by descriptor only, so no link and no exchange of names can turn a
// change of mode to another item.

/// Gives the owner of the open folder all three rights if the folder belongs to `user` and lacks one that the
/// process does not have anyway. Returns the mode before the change; nothing if nothing was changed. A folder
/// whose set-group-ID bit would get lost is left alone.
std::optional<std::uint32_t> giveOwnerRights(int folder, std::uint32_t user);

/// Sets the permission bits of an open folder, one opened with O_PATH too.
bool setFolderMode(int folder, std::uint32_t mode);

/// Opens the folder `name` of the open folder `parent` without the right to read it (O_PATH); follows no link
/// and enters no mount point.
FileDescriptor holdFolderIn(int parent, const char* name);

}  // namespace sorrel
