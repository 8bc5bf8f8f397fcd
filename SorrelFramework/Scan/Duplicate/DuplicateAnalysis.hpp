#pragma once

#include <memory>

#include "SorrelFramework/Scan/Duplicate/DuplicateInfo.hpp"
#include "SorrelFramework/Scan/FinderRun.hpp"

namespace sorrel {

/// The third stage, on the queue of the scan: hashes the candidates, folders first, and goes on to
/// organizeDuplicates.
void analyseDuplicates(const std::shared_ptr<FinderRun>& run, DuplicatesBySize files,
                       DuplicatesBySize folders);

}  // namespace sorrel
