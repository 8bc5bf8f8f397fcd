#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace sorrel {

/// A piece of a file and its location on the device, as reported by FIEMAP (fiemap_extent in
/// <linux/fiemap.h>).
struct FileExtent {
  std::uint64_t logical = 0;   ///< bytes from the start of the file
  std::uint64_t physical = 0;  ///< bytes from the start of the file system's device
  std::uint64_t length = 0;    ///< bytes; the last piece may reach beyond the end of the file
  std::uint32_t flags = 0;     ///< FIEMAP_EXTENT_...
};

/// The next extents of an open file between `start` and `end`; empty if there are none. `flags` are
/// FIEMAP_FLAG_... Nothing, with errno, if the file system does not report extents, or reports none that end
/// after `start`.
std::optional<std::vector<FileExtent>> extentsFrom(int file, std::uint64_t start, std::uint64_t end,
                                                   std::uint32_t flags);

/// True if the file system writes the file's data to new blocks each time: btrfs (unless the file is exempt,
/// chattr +C), bcachefs, ZFS and NILFS.
bool isCopiedOnWrite(int file);

}  // namespace sorrel
