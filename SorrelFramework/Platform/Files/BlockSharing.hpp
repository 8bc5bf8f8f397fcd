#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "SorrelFramework/Platform/Files/FileExtents.hpp"

namespace sorrel {

/// Determines which of a file's blocks on the disk other files have too: clones (reflinks), deduplicated
/// files and snapshots share blocks. btrfs and XFS report it; most other file systems never share blocks.
class BlockSharing {
 public:
  static constexpr std::size_t kMostExtents = 16384;

  /// Queries the file system about a regular file; links are not followed, and no content is read. Nothing if
  /// it shares none of its blocks, or if that can't be determined: the file can't be opened, its file system
  /// does not report extents, it has more than `most` extents, or some of its data has no block of its own.
  /// Dirty pages are flushed first (FIEMAP_FLAG_SYNC), but only for files with shared extents: unwritten data
  /// has no extent yet.
  static std::optional<BlockSharing> of(const std::string& path, std::size_t most = kMostExtents);

  /// Computes the same from the extents of a file of `size` bytes on `device`, in the order of the file.
  static std::optional<BlockSharing> from(std::uint64_t device, std::uint64_t size,
                                          std::vector<FileExtent> extents);

  /// Bytes of the file in blocks that no other file has: its removal frees them at once.
  [[nodiscard]] std::uint64_t ownBytes() const noexcept { return own_; }
  /// Bytes of the file in blocks that other files have too; never 0.
  [[nodiscard]] std::uint64_t sharedBytes() const noexcept { return shared_; }
  /// Two files are complete clones of each other if they lie on one device in the same blocks, all of them
  /// shared, and these texts are equal; "" for a file with blocks of its own.
  [[nodiscard]] const std::string& cloneText() const noexcept { return cloneText_; }

 private:
  BlockSharing() = default;

  std::uint64_t own_ = 0;
  std::uint64_t shared_ = 0;
  std::string cloneText_;
};

}  // namespace sorrel
