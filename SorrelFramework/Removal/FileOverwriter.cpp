#include "SorrelFramework/Removal/FileOverwriter.hpp"

#include <fcntl.h>
#include <linux/fiemap.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "SorrelFramework/Platform/Files/FileExtents.hpp"

namespace sorrel {
namespace {

struct Data {
  std::size_t begin;
  std::size_t end;
};

/// The next data range of the file at or after `from`, cut off at `size`; empty if there is none. Nothing,
/// with errno, on failure. A file system without holes reports the whole file.
std::optional<Data> nextData(int file, std::size_t from, std::size_t size) {
  const off_t begin = ::lseek(file, static_cast<off_t>(from), SEEK_DATA);
  if (begin < 0 && errno == ENXIO) return Data{size, size};
  if (begin < 0 && errno == EINVAL) return Data{from, size};
  if (begin < 0) return std::nullopt;
  const off_t end = ::lseek(file, begin, SEEK_HOLE);
  // The file was truncated in between.
  if (end < 0 && errno == ENXIO) return Data{size, size};
  if (end < 0) return std::nullopt;
  return Data{std::min(static_cast<std::size_t>(begin), size), std::min(static_cast<std::size_t>(end), size)};
}

/// True for extents whose data the file system writes to new blocks. Encrypted ones have the encoded flag
/// too, but are written in place.
bool isWrittenElsewhere(const FileExtent& extent) {
  constexpr std::uint32_t kCoded = FIEMAP_EXTENT_ENCODED | FIEMAP_EXTENT_DATA_ENCRYPTED;
  return (extent.flags & FIEMAP_EXTENT_SHARED) != 0 || (extent.flags & kCoded) == FIEMAP_EXTENT_ENCODED;
}

}  // namespace

FileDescriptor FileOverwriter::open(int item, const ItemIdentity& expected) {
  if ((expected.mode & S_IFMT) != S_IFREG) {
    errno = EINVAL;
    return {};
  }
  const std::string name = "/proc/self/fd/" + std::to_string(item);
  FileDescriptor file(::open(name.c_str(), O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file.isOpen()) return file;
  const auto identity = identityOf(file.get());
  if (identity && identity->isSameAs(expected)) return file;
  if (identity) errno = ESTALE;
  return {};
}

/// Also checks whether the file may be overwritten, because another process can add a hard link at any time.
int FileOverwriter::measure() {
  struct stat status {};
  if (::fstat(file_, &status) != 0) return errno;
  if (!S_ISREG(status.st_mode)) return EINVAL;
  if (status.st_nlink != 1) return EMLINK;
  if (!isMeasured_) size_ = static_cast<std::size_t>(status.st_size);
  isMeasured_ = true;
  return 0;
}

int FileOverwriter::write(const Fill& fill) {
  if (const int error = measure()) return error;
  const int error = forEachBlock([&](Block block, std::size_t offset) {
    fill(block);
    const ssize_t written = ::pwrite(file_, block.data(), block.size(), static_cast<off_t>(offset));
    if (written < 0) return errno;
    return static_cast<std::size_t>(written) == block.size() ? 0 : EIO;
  });
  if (error != 0) return error;
  return sync_(file_) == 0 ? 0 : errno;
}

int FileOverwriter::verify(unsigned char byte) {
  struct stat status {};
  if (::fstat(file_, &status) != 0) return errno;
  if (static_cast<std::size_t>(status.st_size) < size_) return EIO;
  // Drops the page cache where the system allows it, so that the data is read from the disk.
  static_cast<void>(::posix_fadvise(file_, 0, 0, POSIX_FADV_DONTNEED));
  return forEachBlock([&](Block block, std::size_t offset) {
    const ssize_t got = ::pread(file_, block.data(), block.size(), static_cast<off_t>(offset));
    if (got < 0) return errno;
    if (static_cast<std::size_t>(got) != block.size()) return EIO;
    return std::ranges::all_of(block, [byte](unsigned char each) { return each == byte; }) ? 0 : EIO;
  });
}

int FileOverwriter::forEachBlock(const Step& step) {
  hasLeftData_ = false;
  std::vector<unsigned char> buffer(std::min(kBlock, size_));
  for (std::size_t at = 0; at < size_;) {
    const auto ranges = rangesFrom(at, at);
    if (!ranges) return errno;
    for (const Range& range : *ranges) {
      if (const int error = inRange(range.begin, range.end, buffer, step)) return error;
    }
  }
  return 0;
}

/// The ranges to write between `from` and `next`. Nothing, with errno, on failure.
std::optional<std::vector<FileOverwriter::Range>> FileOverwriter::rangesFrom(std::size_t from,
                                                                             std::size_t& next) {
  std::vector<Range> ranges;
  const bool isCopied = isCopiedOnWrite(file_);
  // FIEMAP_FLAG_SYNC gives unwritten data its extent first.
  const auto extents = isCopied ? std::nullopt : extentsFrom(file_, from, size_, FIEMAP_FLAG_SYNC);
  if (!extents) {
    const auto data = nextData(file_, from, size_);
    if (!data) return std::nullopt;
    next = data->end;
    hasLeftData_ = hasLeftData_ || (isCopied && data->begin < data->end);
    if (!isCopied) ranges.push_back({data->begin, data->end});
    return ranges;
  }
  next = size_;
  for (const FileExtent& extent : *extents) {
    const std::size_t begin = std::clamp<std::size_t>(extent.logical, from, size_);
    const std::size_t end = std::clamp<std::size_t>(extent.logical + extent.length, from, size_);
    const bool isLast = (extent.flags & FIEMAP_EXTENT_LAST) != 0;
    next = isLast ? size_ : end;
    if ((extent.flags & FIEMAP_EXTENT_UNWRITTEN) != 0) continue;
    hasLeftData_ = hasLeftData_ || (isWrittenElsewhere(extent) && begin < end);
    if (!isWrittenElsewhere(extent)) ranges.push_back({begin, end});
  }
  return ranges;
}

int FileOverwriter::inRange(std::size_t begin, std::size_t end, Block buffer, const Step& step) {
  for (std::size_t at = begin; at < end; at += buffer.size()) {
    if (const int error = step(buffer.first(std::min(buffer.size(), end - at)), at)) return error;
  }
  return 0;
}

}  // namespace sorrel
