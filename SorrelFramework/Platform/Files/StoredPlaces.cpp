#include "SorrelFramework/Platform/Files/StoredPlaces.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <system_error>

#include "SorrelFramework/Platform/Files/MountTable.hpp"

namespace sorrel {
namespace {

namespace fs = std::filesystem;

std::string withoutSlashAtEnd(std::string path) {
  if (path.ends_with('/')) path.pop_back();
  return path;
}

/// Resolves the links above the item; the item itself may be a link.
std::optional<std::string> realPath(const std::string& path, bool isLink) {
  std::error_code error;
  const fs::path given(path);
  const fs::path real =
      isLink ? fs::canonical(given.parent_path(), error) / given.filename() : fs::canonical(given, error);
  return error ? std::nullopt : std::optional<std::string>(real.native());
}

}  // namespace

StoredPlaces::StoredPlaces(std::string_view mountTable) {
  for (const Mount& mount : mountsIn(mountTable))
    mounts_[mount.number] = {mount.device + withoutSlashAtEnd(mount.root), withoutSlashAtEnd(mount.point)};
}

StoredPlaces StoredPlaces::ofThisMoment() { return StoredPlaces(MountSource::ofThisProcess()->read()); }

std::string StoredPlaces::of(const std::string& path) const {
  struct statx status {};
  constexpr int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
  if (::statx(AT_FDCWD, path.c_str(), flags, STATX_TYPE | STATX_MNT_ID, &status) != 0) return path;
  const auto mount = mounts_.find(status.stx_mnt_id);
  if (mount == mounts_.end()) return path;
  const std::optional<std::string> real = realPath(path, S_ISLNK(status.stx_mode));
  const std::string& point = mount->second.point;
  if (!real || !(withoutSlashAtEnd(*real) + '/').starts_with(point + '/')) return path;
  return mount->second.place + withoutSlashAtEnd(*real).substr(point.size());
}

}  // namespace sorrel
