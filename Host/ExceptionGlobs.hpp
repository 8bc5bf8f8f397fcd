#pragma once

#include <string>
#include <vector>

#include "SorrelFramework/Selection/Globs.hpp"

namespace sorrel::cli {

/// The patterns of `--except`. They protect, so they fit more than those of `--select`: a slash at the end is
/// nothing, letter case is ignored on a macOS volume, and a path through links or relative to the current
/// folder, up to its first wildcard, fits by the path without links too. After installHost().
Globs exceptionGlobs(const std::vector<std::string>& words);

}  // namespace sorrel::cli
