#include "SorrelFramework/Scan/Duplicate/DuplicatePlaces.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

#include "SorrelFramework/Platform/Files/FileManager.hpp"
#include "SorrelFramework/Platform/Items/DirectoryEnumerator.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Scan/ScanFrame.hpp"
#include "SorrelFramework/Scan/ScanPlaces.hpp"

namespace sorrel {
namespace {

/// The path by which this machine finds the item that the volume's own system finds at `path`: it is walked,
/// hashed and recorded by that. A link to a file is not followed.
URL placeOnDisk(const URL& path) {
  URL followed = Host::current().followingLinks(path);
  bool isDirectory = false;
  if (fileExists(followed.path(), &isDirectory) && isDirectory) return followed;
  return Host::current().matchingLetterCase(path);
}

}  // namespace

std::unordered_set<std::string> librariesOfHomes() {
  std::unordered_set<std::string> libraries;
  DirectoryEnumerator homes(URL::fileURL(Host::current().homesFolder(), true), kDirectChildren);
  while (const auto* home = homes.next()) libraries.insert(libraryOfHome(home->url.path()));
  return libraries;
}

std::vector<URL> duplicatePlaces(const std::vector<URL>& scanPaths) {
  std::vector<URL> list;
  for (const URL& path : scanPaths) {
    if (hasFewComponents(path)) {
      std::ranges::move(entriesToScan(path), std::back_inserter(list));
    } else {
      list.push_back(placeOnDisk(path));
    }
  }
  return placesWithoutDetours(std::move(list));
}

}  // namespace sorrel
