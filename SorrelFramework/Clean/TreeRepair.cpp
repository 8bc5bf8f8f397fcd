#include "SorrelFramework/Clean/TreeRepair.hpp"

#include <map>
#include <mutex>
#include <utility>

#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"
#include "SorrelFramework/Scan/LargeAndOldFile/LargeAndOldFileService.hpp"

namespace sorrel {
namespace {

TreeRepairResult repairLargeAndOldFiles(const Ref<CategoryInformation>& allCategory,
                                        const Ref<FeatureInformation>& /*featureInfo*/) {
  if (!allCategory) return {};
  auto [size, files, desc] = LargeAndOldFileService::sortCategory(*allCategory);
  return {size, std::move(files), std::move(desc), {}};
}

TreeRepairResult repairDuplicates(const Ref<CategoryInformation>& allCategory,
                                  const Ref<FeatureInformation>& /*featureInfo*/) {
  if (!allCategory) return {};
  auto [size, files, desc] = DuplicateScanService::sortCategory(*allCategory);
  return {size, std::move(files), std::move(desc), {}};
}

class RepairTable {
 public:
  TreeRepairFunc get(CleanServiceType type) const {
    const std::lock_guard lock(mutex_);
    const auto row = rows_.find(type);
    return row == rows_.end() ? nullptr : row->second;
  }

  TreeRepairFunc exchange(CleanServiceType type, TreeRepairFunc repair) {
    const std::lock_guard lock(mutex_);
    return std::exchange(rows_[type], std::move(repair));
  }

 private:
  mutable std::mutex mutex_;
  std::map<CleanServiceType, TreeRepairFunc> rows_ = {
      {CleanServiceType::LargeAndOldFile, repairLargeAndOldFiles},
      {CleanServiceType::Duplicate, repairDuplicates},
  };
};

RepairTable& table() {
  static RepairTable& repairs = *new RepairTable();  // a clean may outlive the end of main()
  return repairs;
}

}  // namespace

TreeRepairFunc treeRepair(CleanServiceType type) { return table().get(type); }

TreeRepairFunc registerTreeRepair(CleanServiceType type, TreeRepairFunc repair) {
  return table().exchange(type, std::move(repair));
}

}  // namespace sorrel
