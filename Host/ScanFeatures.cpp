#include "Host/ScanFeatures.hpp"

#include <algorithm>
#include <array>
#include <utility>

#include "Host/CommandError.hpp"
#include "Host/Features.hpp"
#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"
#include "SorrelFramework/Scan/LargeAndOldFile/LargeAndOldFileService.hpp"
#include "SorrelFramework/Scan/MasterScan/EmailScanService.hpp"
#include "SorrelFramework/Scan/MasterScan/PhotoScanService.hpp"
#include "SorrelFramework/Scan/MasterScan/SystemScanService.hpp"
#include "SorrelFramework/Scan/MasterScan/TrashBinScanService.hpp"
#include "SorrelFramework/Scan/MasterScan/iTunesScanService.hpp"

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

using JunkScan = decltype(&SystemScanService::scanSystemJunk);

/// A scanner whose results the application puts into the tree.
template <JunkScan scan>
void startJunk(const ScanJob& job) {
  const auto done = [feature = job.feature, finish = job.done](CategoryResults results) {
    finish([feature, results = std::move(results)] {
      const std::int64_t size = fillTree(*feature, results);
      SystemScanService::updateSystemJunkCategory(feature->categoryInfo.refs());
      return size;
    });
  };
  scan(*job.feature, job.progress, job.showPercent, job.singleDone, done, job.dispatch);
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

void startLargeAndOld(const ScanJob& job) {
  const auto done = [finish = job.done](FeatureInformation&, std::int64_t size) {
    finish([size] { return size; });
  };
  LargeAndOldFileService::scanLargeAndOldFile(*job.feature, job.progress, job.showPercent, job.singleDone,
                                              done, job.dispatch);
}

/// By DuplicateKind.
constexpr std::array<const char*, 7> kDuplicateTitles = {"Files",    "Folders", "Documents", "Movies",
                                                         "Pictures", "Other",   "Archives"};

void startDuplicates(const ScanJob& job) {
  for (std::size_t kind = 0; kind < kDuplicateTitles.size(); ++kind) {
    DuplicateScanService::childrenCateogryDict[static_cast<Integer>(kind)] = kDuplicateTitles[kind];
  }
  if (job.scope.limit) DuplicateScanService::limitSize = *job.scope.limit;
  const auto done = [finish = job.done](FeatureInformation& feature, std::int64_t size) {
    finish([feature = Ref<FeatureInformation>(feature), size] {
      feature->categoryInfo[0].size = size;
      return size;
    });
  };
  DuplicateScanService::scanDuplicate(*job.feature, job.scope.places, job.progress, job.showPercent,
                                      job.singleDone, done, job.dispatch, WeftQOS::UserInitiated);
}

[[noreturn]] void refuse(Integer finderID, const std::string& why) {
  throw CommandError(ExitStatus::FatalStop, "the catalogue's feature '" + featureName(finderID) + "' " + why +
                                                ": its scan would never end.");
}

/// A photo library is found without a look at the categories' folders; each category is filled from it.
void refuseWithoutCategories(FeatureInformation& feature) {
  if (feature.categoryInfo.empty()) refuse(feature.finderID, "has no categories");
}

constexpr std::array<ScanFeature, 7> kScanners = {{
    {1, true, nullptr, startJunk<SystemScanService::scanSystemJunk>},
    {2, true, addOtherTrashes, startTrash},
    {3, false, nullptr, startLargeAndOld},
    {4, true, nullptr, startJunk<EmailScanService::scanEmailJunk>},
    {5, true, nullptr, startJunk<iTunesScanService::scaniTunesJunk>},
    {6, false, refuseWithoutCategories, startJunk<PhotoScanService::scaniPhotoJunk>},
    {7, false, refuseWithoutCategories, startDuplicates, DuplicateScanService::placesInHome, true},
}};
static_assert(std::ranges::is_sorted(kScanners, {}, &ScanFeature::finderID));

}  // namespace

const ScanFeature* scanFeature(Integer finderID) {
  const auto row = std::ranges::find(kScanners, finderID, &ScanFeature::finderID);
  return row != kScanners.end() ? row : nullptr;
}

void prepareScan(const ScanFeature& row, FeatureInformation& feature) {
  if (row.addCategories != nullptr) row.addCategories(feature);
  if (!row.walksCategories) return;
  refuseWithoutCategories(feature);
  for (const CategoryInformation& category : feature.categoryInfo) {
    if (category.urls.empty()) refuse(row.finderID, "has a category without urls ('" + category.title + "')");
  }
}

}  // namespace sorrel::cli
