#pragma once

#include <memory>

#include "SorrelFramework/Scan/Duplicate/DuplicateInfo.hpp"
#include "SorrelFramework/Scan/FinderRun.hpp"

namespace sorrel {

/// The fourth stage, on the queue of the scan: makes the tree of groups on a queue of its own and ends the
/// scan.
void organizeDuplicates(const std::shared_ptr<FinderRun>& run, DuplicatesByHash files,
                        DuplicatesByHash folders);

}  // namespace sorrel
