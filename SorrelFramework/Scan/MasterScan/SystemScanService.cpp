#include "SorrelFramework/Scan/MasterScan/SystemScanService.hpp"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"

namespace sorrel {
namespace {

/// Caches of the system's own services for XPC and kernel extensions, in lower case; never offered.
constexpr std::array<std::string_view, 2> kSystemOwnCaches = {"com.apple.xpchelper.cache",
                                                              "com.apple.kext.caches"};

bool isSystemOwnCache(std::string path) {
  if (Host::current().ignoresLetterCase()) path = lowercased(path);
  return std::ranges::any_of(kSystemOwnCaches,
                             [&path](std::string_view name) { return path.find(name) != std::string::npos; });
}

CategoryPlan planFor(const CategoryInformation& category) {
  CategoryPlan plan;
  plan.keys = kRecordKeys;
  plan.options = NSDirectoryEnumerationSkipsHiddenFiles | NSDirectoryEnumerationSkipsPackageDescendants;
  if (category.kind == rawValue(CategoryInfomationKind::SystemCache)) {
    plan.keys = plan.keys | NSURLPathKey;
    plan.filter = SystemScanService::systemCacheFilter;
  }
  return plan;
}

}  // namespace

bool SystemScanService::systemCacheFilter(const URL& /*url*/, const ResourceValues& values,
                                          EnumerationPosition* position) {
  if (position == nullptr || position->level() < 1) return false;
  // Compared below the root: the mount point of a volume says nothing about its contents.
  if (values.path && isSystemOwnCache(Host::current().layoutPath(*values.path))) return false;
  if (values.isDirectory.value_or(false)) position->skipDescendants();
  return true;
}

void SystemScanService::scanSystemJunk(FeatureInformation& featureInfo, ProgressFunc progress,
                                       PercentFunc showPercent, SingleDoneFunc singleDone,
                                       std::function<void(CategoryResults)> done,
                                       std::shared_ptr<WeftSerialQueue> dispatch) {
  scanProSystemJunk(featureInfo, std::move(progress), std::move(showPercent), std::move(singleDone),
                    std::move(done), std::move(dispatch));
}

void SystemScanService::scanProSystemJunk(FeatureInformation& featureInfo, ProgressFunc progress,
                                          PercentFunc showPercent, SingleDoneFunc singleDone,
                                          std::function<void(CategoryResults)> done,
                                          std::shared_ptr<WeftSerialQueue> dispatch) {
  runJunkScan(featureInfo, std::move(progress), std::move(showPercent), std::move(singleDone),
              std::move(done), std::move(dispatch), planFor);
}

std::vector<Ref<CategoryInformation>> SystemScanService::updateSystemJunkCategory(
    std::vector<Ref<CategoryInformation>> finishCategory) {
  for (const Ref<CategoryInformation>& category : finishCategory) {
    Integer position = 0;
    for (FileInformation& record : category->childrens) record.finderID = position++;
  }
  return finishCategory;
}

}  // namespace sorrel
