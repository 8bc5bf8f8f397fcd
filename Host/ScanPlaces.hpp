#pragma once

#include <string>
#include <vector>

#include "SorrelFramework/Platform/URL.hpp"

namespace sorrel::cli {

/// Where a scan looks that takes PATHs: `words` without links and "..", each place once, and none that lies
/// in another one; without any, the home. A PATH that can't be reached, and one that is neither a folder nor
/// a file, are wrong use. After installHost().
std::vector<URL> scanPlaces(const std::vector<std::string>& words);

}  // namespace sorrel::cli
