#pragma once

#include <memory>
#include <vector>

#include "SorrelFramework/Platform/Queues/WeftSerialQueue.hpp"
#include "SorrelFramework/Scan/WalkRequest.hpp"

namespace sorrel {

/// Walks all roots at once on the global queue. `showPercent` (1.0, once) and `done` run on `queue`. An empty
/// list never calls `done`. A request without a filter keeps every item.
void walkRoots(const std::vector<URL>& roots, const WalkRequest& request,
               std::shared_ptr<WeftSerialQueue> queue, PercentFunc showPercent, RootsDoneFunc done);

/// Walks one root on the calling thread, with the help of free threads of the global queue. A root that is a
/// plain file is recorded without a question to the filter; a missing one gives zeros and no records.
[[nodiscard]] WalkResult walkRoot(const URL& root, WalkRequest request);

}  // namespace sorrel
