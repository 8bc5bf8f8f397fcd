#include "Helper/FileSystemFence.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

namespace sorrel::helper {
namespace {

// A type that is not listed may be one that was never considered.
constexpr std::string_view kLocalTypes[] = {
    "ext2",    "ext3", "ext4",     "xfs",      "btrfs", "f2fs",    "zfs",  "bcachefs", "jfs",
    "nilfs2",  "ntfs", "reiserfs", "vfat",     "msdos", "exfat",   "hfs",  "hfsplus",  "ntfs3",
    "iso9660", "udf",  "erofs",    "squashfs", "tmpfs", "overlay", "apfs", "ecryptfs", "minix"};

}  // namespace

FileSystemFence::FileSystemFence(std::vector<std::string> allowedTypes, std::unique_ptr<MountSource> source)
    : allowedTypes_(std::move(allowedTypes)), table_(std::move(source)) {}

bool FileSystemFence::mayEnter(std::uint64_t mount) {
  // The ID of a mount that is gone may already have been reused.
  table_.refresh();
  const Mount* const found = table_.find(mount);
  return found != nullptr && isAllowed(found->type);
}

bool FileSystemFence::isAllowed(std::string_view type) const {
  return std::ranges::find(kLocalTypes, type) != std::end(kLocalTypes) ||
         std::ranges::find(allowedTypes_, type) != allowedTypes_.end();
}

}  // namespace sorrel::helper
