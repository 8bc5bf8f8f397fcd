#pragma once

#include <unistd.h>

#include <cstddef>
#include <utility>

#include "SorrelFramework/Removal/FileOverwriter.hpp"

namespace sorrel::helper {

/// Overwrites the content of an open regular file (FileOverwriter): all bytes 0xFF, then random ones, then
/// 0x00, each pass flushed to the disk, and reads the last one back.
class FileShredder {
 public:
  static constexpr std::size_t kBlock = FileOverwriter::kBlock;
  using Sync = FileOverwriter::Sync;

  /// `file` must be open for reading and writing.
  explicit FileShredder(int file, Sync sync = ::fsync) : overwriter_(file, std::move(sync)) {}

  /// 0, or the errno of the first failure: those of FileOverwriter, and EIO for bytes that are not read back
  /// as they were written.
  [[nodiscard]] int run();
  /// True if data remained that can't be overwritten in place.
  [[nodiscard]] bool hasLeftData() const noexcept { return overwriter_.hasLeftData(); }

 private:
  FileOverwriter overwriter_;
};

}  // namespace sorrel::helper
