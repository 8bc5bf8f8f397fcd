#include "SorrelFramework/Platform/Files/FolderContainment.hpp"

#include <fcntl.h>
#include <linux/openat2.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <optional>
#include <string_view>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Files/OpenResolving.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {
namespace {

FileDescriptor openFolder(int base, const std::string& path) {
  return FileDescriptor(::openat(base, path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

std::string_view withoutSlashesInFront(std::string_view path) {
  return path.substr(std::min(path.find_first_not_of('/'), path.size()));
}

/// Opens the folder in pieces that the system accepts. Closed, with errno set, on failure.
FileDescriptor openLongFolder(std::string_view path) {
  constexpr std::size_t kLongestPiece = PATH_MAX - 1;
  FileDescriptor folder = openFolder(AT_FDCWD, path.starts_with('/') ? "/" : ".");
  path = withoutSlashesInFront(path);
  while (folder.isOpen() && !path.empty()) {
    std::size_t end = path.size();
    if (end > kLongestPiece) end = path.rfind('/', kLongestPiece);
    if (end == std::string_view::npos) {
      errno = ENAMETOOLONG;
      return {};
    }
    folder = openFolder(folder.get(), std::string(path.substr(0, end)));
    path = withoutSlashesInFront(path.substr(end));
  }
  return folder;
}

FolderIdentity identityOf(const FileStatus& status) { return {status.device, status.inode}; }

/// Like foldersUpFrom(), but stops at `last` if it is reached.
std::vector<FolderIdentity> foldersUpTo(const std::optional<FolderIdentity>& last, const std::string& path) {
  std::vector<FolderIdentity> folders;
  FileDescriptor folder = openLongFolder(path);
  // Walks up from the folder itself through "..": neither spelling nor links can disguise its ancestors.
  while (folder.isOpen()) {
    const std::optional<FileStatus> here = statusOf(folder.get());
    if (!here) return {};
    if (!folders.empty() && folders.back() == identityOf(*here)) return folders;  // "/" is its own parent
    folders.push_back(identityOf(*here));
    if (folders.back() == last) return folders;
    folder = openFolder(folder.get(), "..");
  }
  return {};
}

/// True if the names alone prove it, because there is no link on the path to the item's folder.
bool isInByNames(const std::string& path, const std::string& root) {
  if (root.empty() || !path.starts_with(root + "/")) return false;
  const std::string folder = deletingLastPathComponent(path);
  if ((folder + "/").find("/../") != std::string::npos) return false;
  constexpr std::uint64_t resolve = RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
  const auto opened = openResolving(AT_FDCWD, folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC, resolve);
  return opened && opened->isOpen();
}

}  // namespace

std::vector<FolderIdentity> foldersUpFrom(const std::string& path) { return foldersUpTo(std::nullopt, path); }

int containmentError(const std::string& path, const std::string& root) {
  if (!path.starts_with('/') || path.find('\0') != std::string::npos) return EXDEV;
  if (isInByNames(path, root)) return 0;
  const FileDescriptor rootFolder = openLongFolder(root);
  if (!rootFolder.isOpen()) return errno;
  const std::optional<FileStatus> rootStatus = statusOf(rootFolder.get());
  if (!rootStatus) return errno;
  const FolderIdentity last = identityOf(*rootStatus);
  const std::vector<FolderIdentity> folders = foldersUpTo(last, deletingLastPathComponent(path));
  if (folders.empty()) return errno;
  return folders.back() == last ? 0 : EXDEV;
}

}  // namespace sorrel
