#include "SorrelFramework/Removal/OwnerRights.hpp"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "SorrelFramework/Platform/Files/OpenResolving.hpp"

namespace sorrel {
namespace {

constexpr mode_t kPermissions = 07777;

/// The kernel clears the set-group-ID bit when a user outside the folder's group changes the mode.
bool wouldLoseBit(const struct stat& folder) {
  return (folder.st_mode & S_ISGID) != 0 && ::group_member(folder.st_gid) == 0;
}

}  // namespace

std::optional<std::uint32_t> giveOwnerRights(int folder, std::uint32_t user) {
  struct stat status {};
  if (::fstat(folder, &status) != 0 || !S_ISDIR(status.st_mode) || status.st_uid != user) return std::nullopt;
  if ((status.st_mode & S_IRWXU) == S_IRWXU || wouldLoseBit(status)) return std::nullopt;
  if (::faccessat(folder, ".", R_OK | W_OK | X_OK, AT_EACCESS) == 0 || errno != EACCES) return std::nullopt;
  const mode_t before = status.st_mode & kPermissions;
  if (!setFolderMode(folder, before | S_IRWXU)) return std::nullopt;
  return before;
}

bool setFolderMode(int folder, std::uint32_t mode) {
  if (::fchmod(folder, mode) == 0) return true;
  if (errno != EBADF) return false;
  // fchmod() does not accept an O_PATH descriptor. The link in /proc leads to exactly the open folder.
  return ::chmod(("/proc/self/fd/" + std::to_string(folder)).c_str(), mode) == 0;
}

FileDescriptor holdFolderIn(int parent, const char* name) {
  constexpr int flags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  constexpr std::uint64_t resolve = RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS | RESOLVE_BENEATH;
  if (auto folder = openResolving(parent, name, flags, resolve)) return std::move(*folder);
  return FileDescriptor(::openat(parent, name, flags));
}

}  // namespace sorrel
