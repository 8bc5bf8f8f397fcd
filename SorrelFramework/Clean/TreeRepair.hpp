#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "SorrelFramework/Clean/CleanServiceType.hpp"
#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Scan/ScanTypes.hpp"

namespace sorrel {

/// The result of a tree's repair after a clean.
struct TreeRepairResult {
  std::int64_t size = 0;  ///< bytes freed, by the repair's own figure
  /// Records that could not be deleted; for large and old files, the records that were removed.
  FileRecords abnormalFiles;
  std::string desc;  ///< their texts
  /// The new categories, if the repair makes any; otherwise those of the clean stay.
  std::optional<std::vector<Ref<CategoryInformation>>> categorys;
};

/// Updates a finder's tree after a clean, on the clean's background thread. `allCategory` is the first
/// category of the clean, `featureInfo` its feature; either may be empty.
using TreeRepairFunc = std::function<TreeRepairResult(const Ref<CategoryInformation>& allCategory,
                                                      const Ref<FeatureInformation>& featureInfo)>;

/// The repair that follows a clean of that type; empty for a type without one: Common, which
/// HelperCleanService repairs itself, and any whose finder is not part of the framework.
[[nodiscard]] TreeRepairFunc treeRepair(CleanServiceType type);

/// Sets the repair of a type and returns the previous one; an empty function removes it. Any thread.
TreeRepairFunc registerTreeRepair(CleanServiceType type, TreeRepairFunc repair);

}  // namespace sorrel
