#pragma once

#include <string>
#include <vector>

namespace sorrel {

/// The folders with the user's deleted items on the volume mounted at `volume`, by the convention of
/// Host::current(); empty if there are none, and never a link. On a macOS volume `.Trashes/UID`, UID being
/// that of the home's owner, else that of this process. On the desktop, by the freedesktop.org trash rules,
/// the `files` folder of `.Trash/UID`, if `.Trash` is a real folder with the sticky bit, and of `.Trash-UID`;
/// a folder of another user is ignored.
std::vector<std::string> trashFoldersOf(const std::string& volume);

}  // namespace sorrel
