#include "Host/Scanners.hpp"

#include <algorithm>
#include <array>
#include <utility>

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

/// Puts the results of a scan into the tree; returns the bytes of the feature.
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

/// By DuplicateKind.
constexpr std::array<const char*, 7> kDuplicateTitles = {"Files",    "Folders", "Documents", "Movies",
                                                         "Pictures", "Other",   "Archives"};

}  // namespace

void startSystemJunk(const ScanJob& job) { startJunk<SystemScanService::scanSystemJunk>(job); }
void startMail(const ScanJob& job) { startJunk<EmailScanService::scanEmailJunk>(job); }
void startDeviceBackups(const ScanJob& job) { startJunk<iTunesScanService::scaniTunesJunk>(job); }
void startPhotos(const ScanJob& job) { startJunk<PhotoScanService::scaniPhotoJunk>(job); }

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

std::vector<URL> duplicatePlacesInHome(const URL& home) { return DuplicateScanService::placesInHome(home); }

}  // namespace sorrel::cli
