#include "SorrelFramework/Scan/MasterScan/PhotoScanService.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Machine/Host.hpp"

namespace sorrel {
namespace {

constexpr std::array kDerived = {PhotoScanService::osx12PhotoPath1, PhotoScanService::osx12PhotoPath2,
                                 PhotoScanService::osx12PhotoPath3};
constexpr std::array<std::string_view, 3> kPictures = {".png", ".jpg", ".jpeg"};
constexpr std::string_view kLibrary = "photoslibrary";

std::vector<URL> foldersOfTheLibrary() {
  std::vector<URL> folders;
  if (const auto library = PhotoScanService::getPhotoslibraryPath()) {
    for (const std::string_view folder : kDerived)
      folders.push_back(library->appendingPathComponent(folder, true));
  }
  return folders;
}

bool liesBelow(const std::string& path, std::string folder) {
  if (!folder.ends_with('/')) folder += '/';
  return path.size() > folder.size() && path.starts_with(folder);
}

/// The roots of one category on the desktop: its own folders, and the library in the first category. A folder
/// that two categories name, or that lies in another one, is walked once: twice, its bytes would count twice,
/// and a clean would miss the second time what it had removed itself.
std::vector<URL> desktopRoots(const FeatureInformation& feature, const CategoryInformation& category) {
  std::vector<URL> all = foldersOfTheLibrary();
  const bool isFirst = &category == &*feature.categoryInfo.begin();
  std::size_t begin = 0;
  std::size_t end = 0;
  for (const CategoryInformation& other : feature.categoryInfo) {
    if (&other == &category && !isFirst) begin = all.size();
    all.insert(all.end(), other.urls.begin(), other.urls.end());
    if (&other == &category) end = all.size();
  }
  std::vector<URL> roots;
  for (std::size_t i = begin; i < end; ++i) {
    bool isWalkedElsewhere = false;
    for (std::size_t j = 0; j < all.size() && !isWalkedElsewhere; ++j) {
      const bool isSame = all[i].path() == all[j].path();
      isWalkedElsewhere = isSame ? j < i : liesBelow(all[i].path(), all[j].path());
    }
    if (!isWalkedElsewhere) roots.push_back(all[i]);
  }
  return roots;
}

CategoryPlan planFor(const FeatureInformation& feature, const CategoryInformation& category) {
  CategoryPlan plan;
  plan.keys = kRecordKeys | NSURLIsRegularFileKey | NSURLIsHiddenKey | NSURLPathKey;
  plan.options = NSDirectoryEnumerationSkipsHiddenFiles;
  plan.filter = PhotoScanService::pictureFilter;
  const bool isDesktop = Host::current().layout() == Host::Layout::LinuxDesktop;
  plan.roots = isDesktop ? desktopRoots(feature, category) : foldersOfTheLibrary();
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
              std::move(done), std::move(dispatch),
              [feature = Ref<FeatureInformation>(featureInfo)](const CategoryInformation& category) {
                return planFor(*feature, category);
              });
}

}  // namespace sorrel
