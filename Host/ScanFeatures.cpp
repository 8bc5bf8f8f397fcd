#include "Host/ScanFeatures.hpp"

#include <algorithm>
#include <array>
#include <utility>

#include "Host/CommandError.hpp"
#include "Host/Features.hpp"
#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Platform/CheckedMath.hpp"
#include "SorrelFramework/Scan/MasterScan/SystemScanService.hpp"
#include "SorrelFramework/Scan/MasterScan/TrashBinScanService.hpp"

namespace sorrel::cli {
namespace {

constexpr const char* kOtherTrashDescription = "What was thrown away on this volume.";

/// Puts what a scan brought into the tree; answers with the bytes of the feature.
std::int64_t fillTree(FeatureInformation& feature, const CategoryResults& results) {
  std::int64_t sum = 0;
  for (const auto& [index, result] : results) {
    CategoryInformation& category = feature.categoryInfo[static_cast<std::size_t>(index)];
    category.childrens = Children<FileInformation>(result.first);
    category.size = checkedAdd(result.second.fileSize, result.second.folderSize);
    sum = checkedAdd(sum, category.size);
  }
  return sum;
}

void startSystemJunk(const ScanJob& job) {
  const auto done = [feature = job.feature, finish = job.done](CategoryResults results) {
    finish([feature, results = std::move(results)] {
      const std::int64_t size = fillTree(*feature, results);
      SystemScanService::updateSystemJunkCategory(feature->categoryInfo.refs());
      return size;
    });
  };
  SystemScanService::scanSystemJunk(*job.feature, job.progress, job.showPercent, job.singleDone, done,
                                    job.dispatch);
}

Integer nextFinderID(const FeatureInformation& feature) {
  Integer next = 0;
  for (const CategoryInformation& category : feature.categoryInfo) {
    next = std::max(next, Integer{category.finderID} + 1);
  }
  return next;
}

/// One category for the trash of each other volume.
void addOtherTrashes(FeatureInformation& feature) {
  for (auto& [url, volume] : TrashBinScanService::getUSBInfo()) {
    feature.categoryInfo.push_back(makeRef<CategoryInformation>(
        NSControlStateValueOff, nextFinderID(feature), volume,
        Image::lookUp(TrashBinScanService::defaultTrashBinImage), 0, kOtherTrashDescription,
        rawValue(CategoryInfomationKind::OtherTrashBin), std::vector<URL>{url}, Children<FileInformation>{},
        Ref<FeatureInformation>(feature), std::any{}, 0, false));
  }
}

void startTrash(const ScanJob& job) {
  const auto done = [finish = job.done](FeatureInformation&, std::int64_t size) {
    finish([size] { return size; });
  };
  TrashBinScanService::scanTrashBin(*job.feature, job.progress, job.showPercent, job.singleDone, done,
                                    kOtherTrashDescription, job.dispatch);
}

constexpr std::array<ScanFeature, 2> kScanners = {{
    {1, true, nullptr, startSystemJunk},
    {2, true, addOtherTrashes, startTrash},
}};
static_assert(std::ranges::is_sorted(kScanners, {}, &ScanFeature::finderID));

[[noreturn]] void refuse(const ScanFeature& row, const std::string& why) {
  throw CommandError(ExitStatus::FatalStop, "the catalogue's feature '" + featureName(row.finderID) + "' " +
                                                why + ": its scan would never end.");
}

}  // namespace

const ScanFeature* scanFeature(Integer finderID) {
  const auto row = std::ranges::find(kScanners, finderID, &ScanFeature::finderID);
  return row != kScanners.end() ? row : nullptr;
}

void prepareScan(const ScanFeature& row, FeatureInformation& feature) {
  if (row.addCategories != nullptr) row.addCategories(feature);
  if (!row.walksCategories) return;
  if (feature.categoryInfo.empty()) refuse(row, "has no categories");
  for (const CategoryInformation& category : feature.categoryInfo) {
    if (category.urls.empty()) refuse(row, "has a category without urls ('" + category.title + "')");
  }
}

}  // namespace sorrel::cli
