#include "SorrelFramework/Removal/ItemIdentity.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>

namespace sorrel {
namespace {

constexpr unsigned kMask = STATX_TYPE | STATX_MODE | STATX_UID | STATX_INO | STATX_MNT_ID;

std::optional<ItemIdentity> query(int folder, const char* name, int flags) {
  struct statx found {};
  if (::statx(folder, name, flags | AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, kMask, &found) != 0) {
    return std::nullopt;
  }
  return identityIn(found);
}

}  // namespace

std::optional<ItemIdentity> identityIn(const struct statx& found) {
  if ((found.stx_mask & kMask) != kMask || (found.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) == 0) {
    errno = ENOTSUP;
    return std::nullopt;
  }
  ItemIdentity identity;
  identity.number = {::makedev(found.stx_dev_major, found.stx_dev_minor), found.stx_ino};
  identity.mount = found.stx_mnt_id;
  identity.mode = found.stx_mode;
  identity.uid = found.stx_uid;
  identity.isMountRoot = (found.stx_attributes & (STATX_ATTR_MOUNT_ROOT | STATX_ATTR_AUTOMOUNT)) != 0;
  return identity;
}

bool ItemIdentity::isDirectory() const noexcept { return S_ISDIR(mode); }
bool ItemIdentity::isLink() const noexcept { return S_ISLNK(mode); }
bool ItemIdentity::isSticky() const noexcept { return (mode & S_ISVTX) != 0; }

bool ItemIdentity::isSameAs(const ItemIdentity& other) const noexcept {
  return number == other.number && mount == other.mount && (mode & S_IFMT) == (other.mode & S_IFMT) &&
         isMountRoot == other.isMountRoot;
}

// A look-up by name has just refreshed the cached attributes, so no further synchronisation is needed.
std::optional<ItemIdentity> identityOf(int folder, const char* name) {
  return query(folder, name, AT_STATX_DONT_SYNC);
}
std::optional<ItemIdentity> identityOf(int descriptor) { return query(descriptor, "", AT_EMPTY_PATH); }

std::optional<std::uint64_t> mountOf(int descriptor) {
  struct statx found {};
  // With an empty mask no file system can fail, and the mount ID is always reported.
  if (::statx(descriptor, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, 0, &found) != 0) return std::nullopt;
  if ((found.stx_mask & STATX_MNT_ID) == 0) {
    errno = ENOTSUP;
    return std::nullopt;
  }
  return found.stx_mnt_id;
}

}  // namespace sorrel
