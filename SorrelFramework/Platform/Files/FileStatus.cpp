#include "SorrelFramework/Platform/Files/FileStatus.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace sorrel {
namespace {

Date toDate(const statx_timestamp& moment) {
  return {static_cast<double>(moment.tv_sec) + static_cast<double>(moment.tv_nsec) * 1e-9};
}

std::optional<FileStatus> query(int folder, const char* name, int flags) {
  struct statx found {};
  constexpr unsigned mask = STATX_BASIC_STATS | STATX_BTIME;
  if (::statx(folder, name, flags | AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC, mask,
              &found) != 0) {
    return std::nullopt;
  }
  FileStatus status;
  status.mode = found.stx_mode;
  status.uid = found.stx_uid;
  status.size = static_cast<std::int64_t>(found.stx_size);
  status.device = ::makedev(found.stx_dev_major, found.stx_dev_minor);
  status.inode = found.stx_ino;
  if ((found.stx_mask & STATX_BTIME) != 0) status.created = toDate(found.stx_btime);
  status.modified = toDate(found.stx_mtime);
  return status;
}

}  // namespace

bool FileStatus::isDirectory() const noexcept { return S_ISDIR(mode); }
bool FileStatus::isRegularFile() const noexcept { return S_ISREG(mode); }
bool FileStatus::isSticky() const noexcept { return (mode & S_ISVTX) != 0; }

std::optional<FileStatus> statusOf(int folder, const char* name) { return query(folder, name, 0); }
std::optional<FileStatus> statusOf(const std::string& path) {
  if (path.find('\0') != std::string::npos) return std::nullopt;
  return query(AT_FDCWD, path.c_str(), 0);
}
std::optional<FileStatus> statusOf(int descriptor) { return query(descriptor, "", AT_EMPTY_PATH); }

}  // namespace sorrel
