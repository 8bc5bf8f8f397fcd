#include "Tools/TreeSearch.hpp"

#include <algorithm>
#include <mutex>
#include <string_view>

#include "SorrelFramework/Platform/ResourceValues.hpp"
#include "SorrelFramework/Platform/URL.hpp"
#include "SorrelFramework/Scan/TreeWalk.hpp"

namespace sorrel::tools {
namespace {

/// The last component of a file URL's text, still coded.
std::string_view codedName(std::string_view url, bool isDirectory) {
  if (isDirectory) url.remove_suffix(1);
  return url.substr(url.rfind('/') + 1);
}

/// A folder stands right before what lies in it: "a", "a/b", "a.b".
bool standsBefore(const std::string& a, const std::string& b) {
  return std::ranges::lexicographical_compare(a, b, [](char x, char y) {
    const auto rank = [](char c) { return c == '/' ? 0 : static_cast<unsigned char>(c); };
    return rank(x) < rank(y);
  });
}

}  // namespace

std::vector<std::string> searchTree(const std::string& folder, const FindQuery& query) {
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
  walkTree(URL::fileURL(folder, true), request);
  std::ranges::sort(paths, standsBefore);
  return paths;
}

}  // namespace sorrel::tools
