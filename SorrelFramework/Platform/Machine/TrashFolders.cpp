#include "SorrelFramework/Platform/Machine/TrashFolders.hpp"

#include <unistd.h>

#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {
namespace {

bool isRealFolder(const std::string& path) {
  const auto status = statusOf(path);
  return status && status->isDirectory();
}

/// True for a real folder owned by the user; a link, or a folder of another user, is not the user's trash.
bool isOwnFolder(const std::string& path, std::uint32_t uid) {
  const auto status = statusOf(path);
  return status && status->isDirectory() && status->uid == uid;
}

bool isStickyFolder(const std::string& path) {
  const auto status = statusOf(path);
  return status && status->isDirectory() && status->isSticky();
}

void addFilesOf(const std::string& trash, std::uint32_t uid, std::vector<std::string>& folders) {
  const std::string files = trash + "/files";
  if (isOwnFolder(trash, uid) && isOwnFolder(files, uid)) folders.push_back(files);
}

}  // namespace

std::vector<std::string> trashFoldersOf(const std::string& volume) {
  const Host& host = Host::current();
  const std::string uid = std::to_string(host.userID());
  std::vector<std::string> folders;
  if (host.layout() == Host::Layout::MacVolume) {
    const std::string trashes = host.matchingLetterCase(appendingPathComponent(volume, ".Trashes"));
    if (!isRealFolder(trashes)) return folders;
    // Checks both ids: the user may have another id on this machine, and the volume may be a stick of this
    // machine.
    for (const uid_t number : {host.userID(), ::getuid()}) {
      const std::string trash = appendingPathComponent(trashes, std::to_string(number));
      if (folders.empty() && isRealFolder(trash)) folders.push_back(trash);
    }
    return folders;
  }
  const std::string shared = appendingPathComponent(volume, ".Trash");
  if (isStickyFolder(shared)) addFilesOf(shared + '/' + uid, host.userID(), folders);
  addFilesOf(appendingPathComponent(volume, ".Trash-" + uid), host.userID(), folders);
  return folders;
}

}  // namespace sorrel
