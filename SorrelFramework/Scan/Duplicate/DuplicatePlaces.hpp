#pragma once

#include <string>
#include <unordered_set>
#include <vector>

#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {

/// Paths of the folder "Library" in each home.
[[nodiscard]] std::unordered_set<std::string> librariesOfHomes();

/// What the walk starts from. A path with fewer than four components stands for what lies directly in it,
/// links aside, and mounts that are no local volume (MountedVolumes). Of two paths to the same place, one of
/// them by way of a link, one is left: the only copy of a file must not pass for two.
[[nodiscard]] std::vector<URL> duplicatePlaces(const std::vector<URL>& scanPaths);

}  // namespace sorrel
