#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "SorrelFramework/Scan/ScanFrame.hpp"
#include "SorrelFramework/Scan/SuperScanService.hpp"

namespace sorrel {

/// Measures the caches and logs that the catalogue names. A category of kind SystemCache gives one record for
/// each item directly in its folders, sized as a whole; any other kind a record for every item at every
/// depth, where a folder's size includes its items.
class SystemScanService : public SuperScanService {
 public:
  /// Starts the scan and returns. `progress` runs on the main queue once for each item, `showPercent` on the
  /// main thread up to 1.0, `singleDone` and `done` (once) on `dispatch`. No callback is made if the
  /// feature's scan runs already. The tree is left as it is: the caller merges the results that `done` gets.
  static void scanSystemJunk(FeatureInformation& featureInfo, ProgressFunc progress, PercentFunc showPercent,
                             SingleDoneFunc singleDone, std::function<void(CategoryResults)> done,
                             std::shared_ptr<WeftSerialQueue> dispatch);
  static void scanProSystemJunk(FeatureInformation& featureInfo, ProgressFunc progress,
                                PercentFunc showPercent, SingleDoneFunc singleDone,
                                std::function<void(CategoryResults)> done,
                                std::shared_ptr<WeftSerialQueue> dispatch);

  /// Numbers the records of each category by their position in its childrens, after records were merged or
  /// removed.
  static std::vector<Ref<CategoryInformation>> updateSystemJunkCategory(
      std::vector<Ref<CategoryInformation>> finishCategory);

  /// The filter of SystemCache categories: items directly in the folders, without entering them, and without
  /// the two caches that belong to the system itself.
  static bool systemCacheFilter(const URL& url, const ResourceValues& values, EnumerationPosition* position);
};

}  // namespace sorrel
