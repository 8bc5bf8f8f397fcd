#pragma once

#include <string>
#include <unordered_set>
#include <vector>

#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {

/// Paths of the folder "Library" in each home.
[[nodiscard]] std::unordered_set<std::string> librariesOfHomes();

/// The places that the walk starts from, without detours. A path with fewer than four components is replaced
/// by its entriesToScan().
[[nodiscard]] std::vector<URL> duplicatePlaces(const std::vector<URL>& scanPaths);

}  // namespace sorrel
