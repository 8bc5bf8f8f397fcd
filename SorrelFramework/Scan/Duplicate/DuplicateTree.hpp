#pragma once

#include "SorrelFramework/Scan/Duplicate/DuplicateCategories.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateSearch.hpp"
#include "SorrelFramework/Scan/ScanStages.hpp"

namespace sorrel {

/// The last stage, on the queue of the scan: makes the tree of groups on a queue of its own and ends the
/// scan. `titles` outlives the scan.
void buildDuplicateTree(const DuplicateSearchRef& search, const DuplicateTitles& titles,
                        StageThrough through);

}  // namespace sorrel
