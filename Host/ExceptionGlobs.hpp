#pragma once

#include <string>
#include <vector>

#include "SorrelFramework/Selection/Globs.hpp"

namespace sorrel::cli {

/// The patterns of `--except`. They protect, so they match more than those of `--select`: a trailing slash is
/// ignored, letter case is ignored on a macOS volume, and a path through links or relative to the current
/// folder, up to its first wildcard, also matches as the path without links. After installHost().
Globs exceptionGlobs(const std::vector<std::string>& words);

}  // namespace sorrel::cli
