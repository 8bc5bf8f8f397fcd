#include "Tools/TreeSearch.hpp"

#include <algorithm>
#include <mutex>
#include <string_view>
#include <utility>

#include "SorrelFramework/Platform/Items/ResourceValues.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel::tools {
namespace {

/// The last component of a file URL's text, still encoded.
std::string_view codedName(std::string_view url, bool isDirectory) {
  if (isDirectory) url.remove_suffix(1);
  return url.substr(url.rfind('/') + 1);
}

/// Sorts so that a folder comes right before its contents: "a", "a/b", "a.b". No name contains a NUL, which
/// sorts before every other byte.
void sortAsWalked(std::vector<std::string>& paths) {
  for (std::string& path : paths) std::ranges::replace(path, '/', '\0');
  std::ranges::sort(paths);
  for (std::string& path : paths) std::ranges::replace(path, '\0', '/');
}

}  // namespace

std::vector<std::string> searchTree(const std::string& folder, const FindQuery& query,
                                    UnreadFolderHandler unread) {
  std::mutex mutex;
  std::vector<std::string> paths;
  WalkRequest request;
  request.keys = NSURLFileSizeKey | NSURLIsRegularFileKey;
  request.options = NSDirectoryEnumerationSkipsPackageDescendants;
  // Keeps no item, so the walk makes no records.
  request.filter = [&](const URL& url, const ResourceValues& values, EnumerationPosition* position) {
    const bool isDirectory = url.relativeText().ends_with('/');
    const std::string_view coded = codedName(url.relativeText(), isDirectory);
    if (isDirectory && isHiddenName(coded)) {
      position->skipDescendants();
      return false;
    }
    if (!isDirectory && !values.isRegularFile.value_or(false)) return false;
    const std::string name = query.asksForSize() ? std::string() : percentDecodedBytes(coded);
    if (query.matches({name, isDirectory, values.fileSize.value_or(0)})) {
      const std::lock_guard lock(mutex);
      paths.push_back(url.path());
    }
    return false;
  };
  request.unread = std::move(unread);
  walkTree(URL::fileURL(folder, true), request);
  sortAsWalked(paths);
  return paths;
}

}  // namespace sorrel::tools
