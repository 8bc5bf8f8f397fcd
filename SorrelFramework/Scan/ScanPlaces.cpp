#include "SorrelFramework/Scan/ScanPlaces.hpp"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <system_error>
#include <unordered_map>
#include <utility>

#include "SorrelFramework/Platform/Items/ContentType.hpp"
#include "SorrelFramework/Platform/Items/DirectoryEnumerator.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Machine/MountedVolumes.hpp"
#include "SorrelFramework/Platform/Machine/ScanRoot.hpp"
#include "SorrelFramework/Removal/ItemIdentity.hpp"
#include "SorrelFramework/Scan/ScanFrame.hpp"

namespace sorrel {
namespace {

constexpr std::size_t kFewComponents = 4;
constexpr std::string_view kLibrary = "Library";
constexpr std::string_view kFolderType = "public.folder";

bool isLocalVolume(const URL& folder) {
  return std::ranges::any_of(localVolumeURLs(),
                             [&](const URL& volume) { return volume.path() == folder.path(); });
}

/// Adds a file, or a folder that is no package. A finder replaces a folder with few components by its
/// entries, packages included, so such a folder is replaced here, without them.
void addUnlessPackage(const URL& place, std::vector<URL>& list) {
  const bool isFolder = place.relativeText().ends_with('/');
  if (isFolder && !isPlainFolderName(place.lastPathComponent())) return;
  if (!isFolder || !hasFewComponents(place)) return list.push_back(place);
  for (const URL& entry : entriesToScan(place)) addUnlessPackage(entry, list);
}

/// The real path of the folder that a walk enters; "" if it can't be read.
std::string realFolder(const std::string& path) {
  const FileDescriptor folder = openFolder(path);
  if (!folder.isOpen()) return "";
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(folder.get()), error).string();
}

/// The same for a folder or a file.
std::string realPath(const std::string& path) {
  std::string real = realFolder(path);
  const std::size_t slash = path.rfind('/');
  if (!real.empty() || slash == std::string::npos) return real;
  real = realFolder(path.substr(0, slash + 1));
  return real.empty() ? real : real + path.substr(slash);
}

/// The paths of a list, each with the given and the real one.
class Places {
 public:
  explicit Places(std::vector<URL> list) : list_(std::move(list)) {
    for (const URL& url : list_) {
      paths_.push_back(url.path());
      reals_.push_back(realPath(paths_.back()));
    }
    for (std::size_t i = 0; i < list_.size(); ++i) {
      if (paths_[i] == reals_[i]) {
        byRealPath_.insert_or_assign(reals_[i], i);
      } else {
        byRealPath_.try_emplace(reals_[i], i);
      }
    }
  }

  [[nodiscard]] std::vector<URL> withoutDetours() const {
    std::vector<URL> kept;
    for (std::size_t i = 0; i < list_.size(); ++i) {
      if (!liesInAnotherByALink(i)) kept.push_back(list_[i]);
    }
    return kept;
  }

 private:
  [[nodiscard]] bool liesInAnotherByALink(std::size_t i) const {
    std::string_view above = reals_[i];
    while (!above.empty()) {
      const auto other = byRealPath_.find(above);
      if (other != byRealPath_.end() && other->second != i) {
        const std::string_view below = std::string_view(reals_[i]).substr(above.size());
        if (paths_[i] != paths_[other->second] + std::string(below)) return true;
      }
      above = above.substr(0, above.rfind('/'));
    }
    return false;
  }

  std::vector<URL> list_;
  std::vector<std::string> paths_;
  std::vector<std::string> reals_;
  std::unordered_map<std::string_view, std::size_t> byRealPath_;
};

}  // namespace

bool isPlainFolderName(std::string_view name) {
  // Without an extension there is nothing to look up.
  return name.find('.') == std::string_view::npos ||
         contentType(name, true).find(kFolderType) != std::string::npos;
}

bool hasFewComponents(const URL& path) {
  const URL inLayout = URL::fileURL(Host::current().layoutPath(path.path()), true);
  return inLayout.pathComponents().size() < kFewComponents;
}

std::string libraryOfHome(const std::string& home) {
  const std::string path = Host::current().matchingLetterCase(appendingPathComponent(home, kLibrary));
  return appendingPathComponent(home, lastPathComponent(path));
}

std::vector<URL> entriesToScan(const URL& folder) {
  std::vector<URL> list;
  const FileDescriptor open = openFolder(folder.path());
  DirectoryEnumerator children(folder, kDirectChildren);
  while (const auto* child = children.next()) {
    if (!child->status.isDirectory() && !child->status.isRegularFile()) continue;
    const auto identity = identityOf(open.get(), child->name.c_str());
    if (identity && identity->isMountRoot && !isLocalVolume(child->url)) continue;
    list.push_back(child->url);
  }
  return list;
}

std::vector<URL> placesWithoutDetours(std::vector<URL> list) {
  return Places(std::move(list)).withoutDetours();
}

std::vector<URL> placesToScanInHome(const URL& home) {
  std::vector<URL> list;
  const URL library = URL::fileURL(libraryOfHome(home.path()), true);
  for (const URL& entry : entriesToScan(home)) {
    if (entry.lastPathComponent() != library.lastPathComponent()) addUnlessPackage(entry, list);
  }
  return list;
}

}  // namespace sorrel
