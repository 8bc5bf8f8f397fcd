#include "SorrelFramework/Platform/Files/FileExtents.hpp"

#include <linux/fiemap.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <iterator>
#include <new>

namespace sorrel {
namespace {

constexpr std::uint32_t kAtOnce = 128;
constexpr std::uint32_t kBcachefs = 0xca451a4e;
constexpr std::uint32_t kNilfs = 0x3434;
constexpr std::uint32_t kZfs = 0x2fc12fc1;
constexpr std::uint32_t kCopyingTypes[] = {BTRFS_SUPER_MAGIC, kBcachefs, kNilfs, kZfs};

}  // namespace

std::optional<std::vector<FileExtent>> extentsFrom(int file, std::uint64_t start, std::uint64_t end,
                                                   std::uint32_t flags) {
  alignas(fiemap) std::array<std::byte, sizeof(fiemap) + kAtOnce * sizeof(fiemap_extent)> buffer;
  auto* const head = new (buffer.data()) fiemap{};
  head->fm_start = start;
  head->fm_length = end - start;
  head->fm_flags = flags;
  head->fm_extent_count = kAtOnce;
  if (::ioctl(file, FS_IOC_FIEMAP, head) != 0) return std::nullopt;
  std::vector<FileExtent> extents;
  for (std::uint32_t i = 0; i < std::min(head->fm_mapped_extents, kAtOnce); ++i) {
    const fiemap_extent& found = head->fm_extents[i];
    extents.push_back({found.fe_logical, found.fe_physical, found.fe_length, found.fe_flags});
  }
  if (!extents.empty() && extents.back().logical + extents.back().length <= start) {
    errno = EIO;
    return std::nullopt;
  }
  return extents;
}

bool isCopiedOnWrite(int file) {
  struct statfs system {};
  if (::fstatfs(file, &system) != 0) return false;
  if (std::ranges::find(kCopyingTypes, static_cast<std::uint32_t>(system.f_type)) ==
      std::end(kCopyingTypes)) {
    return false;
  }
  int attributes = 0;
  return ::ioctl(file, FS_IOC_GETFLAGS, &attributes) != 0 || (attributes & FS_NOCOW_FL) == 0;
}

}  // namespace sorrel
