#include "SorrelFramework/Scan/MasterScan/PhotoScanService.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Files/FolderStream.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Machine/ScanRoot.hpp"

namespace sorrel {
namespace {

constexpr std::array kDerived = {PhotoScanService::osx12PhotoPath1, PhotoScanService::osx12PhotoPath2,
                                 PhotoScanService::osx12PhotoPath3};
constexpr std::array<std::string_view, 3> kPictures = {".png", ".jpg", ".jpeg"};
constexpr std::string_view kLibrary = "photoslibrary";
constexpr EnumerationOptions kOptions = NSDirectoryEnumerationSkipsHiddenFiles;

std::vector<URL> foldersOfTheLibrary() {
  std::vector<URL> folders;
  if (const auto library = PhotoScanService::getPhotoslibraryPath()) {
    for (const std::string_view folder : kDerived)
      folders.push_back(library->appendingPathComponent(folder, true));
  }
  return folders;
}

bool isPictureName(std::string_view name) {
  return std::ranges::any_of(
      kPictures, [name](std::string_view ending) { return name.find(ending) != std::string_view::npos; });
}

/// The path of a root without links; a root that is a link to a file is recorded as that link.
std::string realPath(const std::string& path) {
  namespace fs = std::filesystem;
  std::error_code error;
  if (fs::is_directory(path, error)) return fs::canonical(path, error).string();
  const fs::path above = fs::canonical(deletingLastPathComponent(path), error);
  return error ? path : (above / lastPathComponent(path)).string();
}

/// True if a walk of `folder` meets what lies in it at `below`: it enters neither hidden folders nor links
/// nor mount points. Both are paths without links.
bool walkMeets(const std::string& folder, std::string_view below) {
  FileDescriptor above = openFolder(folder);
  while (above.isOpen()) {
    const std::string name(below.substr(0, below.find('/')));
    if (!isMet(name, kOptions)) return false;
    if (name.size() == below.size()) {
      const auto status = statusOf(above.get(), name.c_str());
      if (status && !status->isDirectory()) return isPictureName(name);
    }
    above = openFolderIn(above.get(), name.c_str());
    if (name.size() == below.size()) return above.isOpen();
    below.remove_prefix(name.size() + 1);
  }
  return false;
}

/// True if the walk of the root `outer` records what lies in the root `inner`.
bool covers(std::string outer, const std::string& inner) {
  if (!outer.ends_with('/')) outer += '/';
  return inner.size() > outer.size() && inner.starts_with(outer) &&
         walkMeets(outer, std::string_view(inner).substr(outer.size()));
}

/// The roots of one category on the desktop: its own folders, and the library in the first category. A folder
/// that two categories name, or that lies in another one, is walked once: walked twice, its bytes would count
/// twice, and a clean would fail on the items that it had already removed itself.
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
  std::vector<std::string> paths;
  paths.reserve(all.size());
  for (const URL& url : all) paths.push_back(realPath(url.path()));
  std::vector<URL> roots;
  for (std::size_t i = begin; i < end; ++i) {
    bool isWalkedElsewhere = false;
    for (std::size_t j = 0; j < all.size() && !isWalkedElsewhere; ++j)
      isWalkedElsewhere = paths[i] == paths[j] ? j < i : covers(paths[j], paths[i]);
    if (!isWalkedElsewhere) roots.push_back(all[i]);
  }
  return roots;
}

CategoryPlan planFor(const FeatureInformation& feature, const CategoryInformation& category) {
  CategoryPlan plan;
  plan.keys = kRecordKeys | NSURLIsRegularFileKey | NSURLIsHiddenKey | NSURLPathKey;
  plan.options = kOptions;
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
  return isPictureName(lastPathComponent(*values.path));
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
