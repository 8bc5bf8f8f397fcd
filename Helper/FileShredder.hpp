#pragma once

#include <unistd.h>

#include <cstddef>
#include <functional>
#include <utility>

namespace sorrel::helper {

/// Writes over what an open regular file holds: all bytes 0xFF, then random ones, then 0x00, each pass
/// brought to the disk, and reads the last one back. In place and within the size that the file has at the
/// beginning, a block at a time; the file keeps its size. On file systems that write elsewhere (copy on
/// write, flash) the old content may stay on the device.
class FileShredder {
 public:
  static constexpr std::size_t kBlock = std::size_t{1} << 20;

  /// Brings an open file to the disk; 0 or -1 with errno. Tests look on here.
  using Sync = std::function<int(int file)>;

  /// `file` is open for reading and writing.
  explicit FileShredder(int file, Sync sync = ::fsync) : file_(file), sync_(std::move(sync)) {}

  /// 0, or the errno of the first failure. EMLINK for a file that has other names, before each pass: their
  /// content is not ours to destroy. EIO for bytes that don't come back as they were written.
  [[nodiscard]] int run();

 private:
  enum class Fill : unsigned char { Ones, Random, Zeros };
  int pass(Fill fill);
  int verify();

  int file_;
  Sync sync_;
  std::size_t size_ = 0;
};

}  // namespace sorrel::helper
