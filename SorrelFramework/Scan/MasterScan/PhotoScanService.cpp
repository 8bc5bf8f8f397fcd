#include "SorrelFramework/Scan/MasterScan/PhotoScanService.hpp"

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Host.hpp"

namespace sorrel {
namespace {

constexpr std::array kDerived = {PhotoScanService::osx12PhotoPath1, PhotoScanService::osx12PhotoPath2,
                                 PhotoScanService::osx12PhotoPath3};
constexpr std::array<std::string_view, 3> kPictures = {".png", ".jpg", ".jpeg"};
constexpr std::string_view kLibrary = "photoslibrary";

std::vector<URL> rootsOf(const CategoryInformation& category) {
  std::vector<URL> roots;
  if (const auto library = PhotoScanService::getPhotoslibraryPath()) {
    for (const std::string_view folder : kDerived)
      roots.push_back(library->appendingPathComponent(folder, true));
  }
  if (Host::current().layout() == Host::Layout::LinuxDesktop)
    roots.insert(roots.end(), category.urls.begin(), category.urls.end());
  return roots;
}

CategoryPlan planFor(const CategoryInformation& category) {
  CategoryPlan plan;
  plan.keys = kRecordKeys | NSURLIsRegularFileKey | NSURLIsHiddenKey | NSURLPathKey;
  plan.options = NSDirectoryEnumerationSkipsHiddenFiles;
  plan.filter = PhotoScanService::pictureFilter;
  plan.roots = rootsOf(category);
  return plan;
}

}  // namespace

std::optional<URL> PhotoScanService::getPhotoslibraryPath() {
  std::optional<URL> library;
  DirectoryEnumerator pictures(URL::fileURL(Host::current().picturesFolder(), true), kDirectChildren);
  while (const auto* item = pictures.next()) {
    if (item->name.find(kLibrary) != std::string::npos) library = item->url;
  }
  return library;
}

bool PhotoScanService::pictureFilter(const URL& /*url*/, const ResourceValues& values,
                                     EnumerationPosition* /*position*/) {
  if (!values.path) return false;
  const std::string_view name = lastPathComponent(*values.path);
  return std::ranges::any_of(
      kPictures, [name](std::string_view ending) { return name.find(ending) != std::string_view::npos; });
}

void PhotoScanService::scaniPhotoJunk(FeatureInformation& featureInfo, ProgressFunc progress,
                                      PercentFunc showPercent, SingleDoneFunc singleDone,
                                      std::function<void(CategoryResults)> done,
                                      std::shared_ptr<WeftSerialQueue> dispatch) {
  scanProiPhotoJunk(featureInfo, std::move(progress), std::move(showPercent), std::move(singleDone),
                    std::move(done), std::move(dispatch));
}

void PhotoScanService::scanProiPhotoJunk(FeatureInformation& featureInfo, ProgressFunc progress,
                                         PercentFunc showPercent, SingleDoneFunc singleDone,
                                         std::function<void(CategoryResults)> done,
                                         std::shared_ptr<WeftSerialQueue> dispatch) {
  runJunkScan(featureInfo, std::move(progress), std::move(showPercent), std::move(singleDone),
              std::move(done), std::move(dispatch), planFor);
}

}  // namespace sorrel
