#pragma once

#include <string>
#include <vector>

namespace sorrel {

/// The folders that hold what the user threw away on the volume mounted at `volume`, in the convention of
/// Host::current(); none if there is none, and never one that is a link. On a macOS volume `.Trashes/UID`,
/// UID being that of the home's owner, else that of this process. On the desktop, by the freedesktop.org
/// trash rules, the `files` folder of `.Trash/UID`, if `.Trash` is a real folder with the sticky bit, and of
/// `.Trash-UID`; one that belongs to somebody else is ignored.
std::vector<std::string> trashFoldersOf(const std::string& volume);

}  // namespace sorrel
