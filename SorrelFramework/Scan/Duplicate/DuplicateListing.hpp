#pragma once

#include <vector>

#include "SorrelFramework/Scan/Duplicate/DuplicateSearch.hpp"
#include "SorrelFramework/Scan/ScanStages.hpp"

namespace sorrel {

/// The first stage: walks the places, all at once, and collects the files and folders above the limit. A stop
/// ends the scan at the first place that is through.
void listCandidates(const DuplicateSearchRef& search, const std::vector<URL>& places,
                    const StageThrough& through);

}  // namespace sorrel
