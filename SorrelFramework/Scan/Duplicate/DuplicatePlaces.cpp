#include "SorrelFramework/Scan/Duplicate/DuplicatePlaces.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

#include "SorrelFramework/Platform/Items/DirectoryEnumerator.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Scan/ScanFrame.hpp"
#include "SorrelFramework/Scan/ScanPlaces.hpp"

namespace sorrel {

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
      list.push_back(path);
    }
  }
  return placesWithoutDetours(std::move(list));
}

}  // namespace sorrel
