#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "SorrelFramework/Platform/Files/FileExtents.hpp"

namespace sorrel {

/// Which of a file's blocks on the disk other files have too, as clones (reflinks), deduplicated files and
/// snapshots do. btrfs and XFS can tell; for most other file systems there is never anything to tell.
class BlockSharing {
 public:
  static constexpr std::size_t kMostExtents = 16384;

  /// Asks the file system about a regular file; links are not followed, and no content is read. Nothing if it
  /// shares none of its blocks, or if that can't be told: the file can't be opened, its file system does not
  /// know, it has more than `most` extents, or some of its data has no block of its own. Only of a file with
  /// shared blocks what the kernel has not written yet goes to the disk before: until then it lies nowhere.
  static std::optional<BlockSharing> of(const std::string& path, std::size_t most = kMostExtents);

  /// The same from the extents of a file of `size` bytes on `device`, in the order of the file.
  static std::optional<BlockSharing> from(std::uint64_t device, std::uint64_t size,
                                          std::vector<FileExtent> extents);

  /// Bytes of the file in blocks that no other file has: what its removal frees at once.
  [[nodiscard]] std::uint64_t ownBytes() const noexcept { return own_; }
  /// Bytes of the file in blocks that other files have too; never 0.
  [[nodiscard]] std::uint64_t sharedBytes() const noexcept { return shared_; }
  /// Two files are whole clones of each other if they lie on one device in the same blocks, all of them
  /// shared, and their texts here are equal; "" for a file with blocks of its own.
  [[nodiscard]] const std::string& cloneText() const noexcept { return cloneText_; }

 private:
  BlockSharing() = default;

  std::uint64_t own_ = 0;
  std::uint64_t shared_ = 0;
  std::string cloneText_;
};

}  // namespace sorrel
