#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {

/// True if a directory of this name is a plain folder: neither a package nor a framework.
[[nodiscard]] bool isPlainFolderName(std::string_view name);

/// True for a path with fewer than four components ("/Users/alice" has three). A finder scans its entries in
/// its place.
[[nodiscard]] bool hasFewComponents(const URL& path);

/// Path of the folder "Library" of a home, as the disk spells it.
[[nodiscard]] std::string libraryOfHome(const std::string& home);

/// The entries of a folder that are not hidden, except links and mounts that are not local volumes
/// (MountedVolumes). A link leads to files that are met elsewhere, or that were not asked for. A mount is
/// another volume that keeps files, a view of files that are met elsewhere too, or no files at all: the
/// kernel shows its own state as files, some of which never end.
[[nodiscard]] std::vector<URL> entriesToScan(const URL& folder);

/// The places of the list, but one of two paths to the same place of which one goes through a link: the only
/// copy of a file must not pass for two.
[[nodiscard]] std::vector<URL> placesWithoutDetours(std::vector<URL> list);

/// The places to scan for a user who chose none: the entries of the home, except packages and the folder
/// Library. An entry with few components is replaced by its own entries, except packages.
[[nodiscard]] std::vector<URL> placesToScanInHome(const URL& home);

}  // namespace sorrel
