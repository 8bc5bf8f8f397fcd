#include "SorrelFramework/Scan/MasterScan/TrashBinScanService.hpp"

#include <algorithm>

#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Machine/MountedVolumes.hpp"
#include "SorrelFramework/Platform/Machine/TrashFolders.hpp"
#include "SorrelFramework/Platform/Queues/MainQueue.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"

namespace sorrel {
namespace {

bool isLink(const URL& url) {
  const auto status = statusOf(Host::current().matchingLetterCase(url.path()));
  return status && !status->isDirectory() && !status->isRegularFile();
}

/// Folders that are links are left out: they do not lead to a trash, and may lead to the whole disk.
CategoryPlan planFor(const CategoryInformation& category) {
  CategoryPlan plan;
  plan.keys = kRecordKeys;
  plan.filter = TrashBinScanService::filter;
  if (std::ranges::none_of(category.urls, isLink)) return plan;
  plan.roots = category.urls;
  std::erase_if(*plan.roots, isLink);
  return plan;
}

/// Writes the results into the tree; returns all bytes of the feature.
std::int64_t fillTree(FeatureInformation& feature, const CategoryResults& results) {
  std::int64_t all = 0;
  for (const auto& [index, result] : results) {
    if (static_cast<std::size_t>(index) >= feature.categoryInfo.size())
      continue;  // removed from the tree during the scan
    CategoryInformation& category = feature.categoryInfo[static_cast<std::size_t>(index)];
    category.childrens = result.first;
    category.size = checkedAdd(result.second.fileSize, result.second.folderSize);
    all = checkedAdd(all, category.size);
  }
  return all;
}

/// Counted from the root of the layout: "/Volumes/X" has three components, the root itself two.
bool isOtherVolume(const URL& volume) {
  const auto pieces = componentsSeparatedBy(Host::current().layoutPath(volume.path()), "/");
  return pieces.size() > 2 && pieces[1] != "System";
}

}  // namespace

bool TrashBinScanService::filter(const URL& /*url*/, const ResourceValues& /*values*/,
                                 EnumerationPosition* position) {
  return position != nullptr && position->level() == 1;
}

void TrashBinScanService::scanTrashBin(FeatureInformation& featureInfo, ProgressFunc progress,
                                       PercentFunc showPercent, SingleDoneFunc singleDone,
                                       std::function<void(FeatureInformation&, std::int64_t size)> done,
                                       const std::string& otherTrashBinDesc,
                                       std::shared_ptr<WeftSerialQueue> dispatch) {
  scanProTrashBin(featureInfo, std::move(progress), std::move(showPercent), std::move(singleDone),
                  std::move(done), otherTrashBinDesc, std::move(dispatch));
}

void TrashBinScanService::scanProTrashBin(
    FeatureInformation& featureInfo, ProgressFunc progress, PercentFunc showPercent,
    // NOLINTNEXTLINE(performance-unnecessary-value-param): as all scanners
    SingleDoneFunc /*singleDone*/, std::function<void(FeatureInformation&, std::int64_t size)> done,
    const std::string& /*otherTrashBinDesc*/, std::shared_ptr<WeftSerialQueue> dispatch) {
  ScanPlan plan;
  plan.category = planFor;
  plan.lastStep = MainQueue::post;
  plan.fillTree = [feature = Ref(featureInfo)](const CategoryResults& results) {
    return fillTree(*feature, results);
  };
  plan.done = [feature = Ref(featureInfo), done = std::move(done)](const CategoryResults& /*results*/,
                                                                   std::int64_t bytes) {
    if (done) done(*feature, bytes);
  };
  runCategoryScan(featureInfo, std::move(progress), std::move(showPercent), std::move(plan),
                  std::move(dispatch));
}

std::vector<std::pair<URL, std::string>> TrashBinScanService::getUSBInfo() {
  std::vector<std::pair<URL, std::string>> trashes;
  for (const URL& volume : mountedVolumeURLs()) {
    if (!isOtherVolume(volume)) continue;
    for (const std::string& folder : trashFoldersOf(volume.path())) {
      trashes.emplace_back(URL::fileURL(folder, true), volume.lastPathComponent());
    }
  }
  return trashes;
}

}  // namespace sorrel
