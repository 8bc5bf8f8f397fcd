#pragma once

#include <unistd.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "SorrelFramework/Removal/ItemIdentity.hpp"

namespace sorrel {

/// Overwrites an open regular file in place: one block at a time, within the size that the file has at the
/// first pass, and only where the file has data in blocks of its own. Data that would be written to new
/// blocks is left as it is, so that the file occupies no more space than before and no useless writes are
/// made: holes, unwritten extents, extents that other files share, compressed ones, and all data on
/// copy-on-write file systems. On flash memory the old content may remain on the device.
class FileOverwriter {
 public:
  static constexpr std::size_t kBlock = std::size_t{1} << 20;
  using Block = std::span<unsigned char>;
  /// Fills a block with the bytes to write.
  using Fill = std::function<void(Block block)>;
  /// Flushes an open file to the disk; 0 or -1 with errno. For tests.
  using Sync = std::function<int(int file)>;

  /// Opens the item that `item` (O_PATH) holds for reading and writing, even if another item has its name by
  /// now: opening a FIFO or a device could already have a side effect. Sets errno on failure: EINVAL for an
  /// item that is not a regular file, ESTALE for another item than `expected`.
  static FileDescriptor open(int item, const ItemIdentity& expected);

  /// `file` must be open for reading and writing.
  explicit FileOverwriter(int file, Sync sync = ::fsync) : file_(file), sync_(std::move(sync)) {}

  /// One pass over all data, then a flush to the disk. 0 or an errno: EMLINK for a file with further hard
  /// links, whose content must survive; EIO for a short write.
  [[nodiscard]] int write(const Fill& fill);
  /// 0 if all data written by the passes reads back as `byte`, else EIO or the errno of a failure.
  [[nodiscard]] int verify(unsigned char byte);

  /// True if the last pass left data unchanged, because it would have been written to new blocks.
  [[nodiscard]] bool hasLeftData() const noexcept { return hasLeftData_; }

 private:
  /// The action on one block of data: 0 or an errno.
  using Step = std::function<int(Block block, std::size_t offset)>;
  struct Range {
    std::size_t begin;
    std::size_t end;
  };
  int measure();
  int forEachBlock(const Step& step);
  std::optional<std::vector<Range>> rangesFrom(std::size_t from, std::size_t& next);
  int inRange(std::size_t begin, std::size_t end, Block buffer, const Step& step);

  int file_;
  Sync sync_;
  std::size_t size_ = 0;
  bool isMeasured_ = false;
  bool hasLeftData_ = false;
};

}  // namespace sorrel
