#include "SorrelFramework/Clean/ProtectedPlaces.hpp"

#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Machine/MountedVolumes.hpp"
#include "SorrelFramework/Platform/Machine/TrashFolders.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"
#include "SorrelFramework/Removal/RemovalPolicy.hpp"

namespace sorrel {
namespace {

namespace fs = std::filesystem;

// The desktop's trash keeps the items and their descriptions in two folders.
constexpr const char* kTrashesOfHome[] = {"/.Trash", "/.local/share/Trash/files", "/.local/share/Trash/info"};

/// A path that can't be checked for lack of descriptors or memory is reported as unknown, not skipped.
std::vector<std::string> foldersIn(const std::string& parent, RemovalPolicy& policy) {
  std::vector<std::string> folders;
  std::error_code error;
  for (fs::directory_iterator at(parent, error), end; !error && at != end; at.increment(error)) {
    std::error_code unknown;
    if (at->is_directory(unknown)) folders.push_back(at->path().string());
    if (unknown) policy.addUnknown(unknown.value());
  }
  if (error) policy.addUnknown(error.value());
  return folders;
}

void protectTrashesOf(const std::string& home, RemovalPolicy& policy) {
  for (const char* const trash : kTrashesOfHome) {
    policy.protectSelfAndAncestors(Host::current().locate(home + trash));
    policy.protectSelfAndAncestors(home + trash);
  }
}

}  // namespace

void protectPlacesOfHost(RemovalPolicy& policy) {
  const Host& host = Host::current();
  if (!host.root().empty()) policy.protectSelfAndAncestors(host.root());
  policy.protectSelfAndAncestors(host.homesFolder());
  std::vector<std::string> homes = foldersIn(host.homesFolder(), policy);
  homes.push_back(host.home());
  for (const std::string& home : homes) {
    policy.protectSelfAndAncestors(home);
    protectTrashesOf(home, policy);
  }
  for (const URL& volume : localVolumeURLs()) {
    const std::string trashes = appendingPathComponent(volume.path(), ".Trashes");
    policy.protectSelfAndAncestors(trashes);
    for (const std::string& trash : foldersIn(trashes, policy)) policy.protectSelfAndAncestors(trash);
    for (const std::string& trash : trashFoldersOf(volume.path())) policy.protectSelfAndAncestors(trash);
  }
}

}  // namespace sorrel
