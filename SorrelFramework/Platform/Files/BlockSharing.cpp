#include "SorrelFramework/Platform/Files/BlockSharing.hpp"

#include <linux/fiemap.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <limits>

#include "SorrelFramework/Platform/Digest/Digest.hpp"
#include "SorrelFramework/Platform/Files/FileExtents.hpp"
#include "SorrelFramework/Platform/Files/FileReadStream.hpp"

namespace sorrel {
namespace {

using Extents = std::vector<FileExtent>;

/// Data with one of these flags has no blocks yet, unknown blocks, or a part of one.
constexpr std::uint32_t kWithoutBlocks = FIEMAP_EXTENT_UNKNOWN | FIEMAP_EXTENT_DELALLOC |
                                         FIEMAP_EXTENT_NOT_ALIGNED | FIEMAP_EXTENT_DATA_INLINE |
                                         FIEMAP_EXTENT_DATA_TAIL;
/// Length and location of such extents are unrelated: many pieces may start at one block.
constexpr std::uint32_t kCoded = FIEMAP_EXTENT_ENCODED | FIEMAP_EXTENT_DATA_ENCRYPTED;
/// Properties besides the location that distinguish two pieces.
constexpr std::uint32_t kKindOfData = kCoded | FIEMAP_EXTENT_UNWRITTEN;

bool isShared(const FileExtent& extent) { return (extent.flags & FIEMAP_EXTENT_SHARED) != 0; }
bool isCoded(const FileExtent& extent) { return (extent.flags & kCoded) != 0; }

/// The extents of the first `size` bytes of a file; nothing if the file system does not report them, or if
/// there are too many.
std::optional<Extents> readExtents(int file, std::uint64_t size, std::uint32_t flags, std::size_t most) {
  Extents extents;
  for (std::uint64_t start = 0; start < size; start = extents.back().logical + extents.back().length) {
    const auto more = extentsFrom(file, start, size, flags);
    if (!more || extents.size() + more->size() > most) return std::nullopt;
    if (more->empty()) return extents;
    extents.insert(extents.end(), more->begin(), more->end());
    if ((extents.back().flags & FIEMAP_EXTENT_LAST) != 0) return extents;
  }
  return extents;
}

/// True if each extent begins at or after the end of the previous one, and has blocks.
bool areInOrder(const Extents& extents) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t end = 0;
  return std::ranges::all_of(extents, [&end](const FileExtent& extent) {
    if ((extent.flags & kWithoutBlocks) != 0 || extent.length == 0 || extent.logical < end) return false;
    if (extent.length > kMost - extent.logical || extent.length > kMost - extent.physical) return false;
    end = extent.logical + extent.length;
    return true;
  });
}

void cutAtEnd(Extents& extents, std::uint64_t size) {
  std::erase_if(extents, [size](const FileExtent& extent) { return extent.logical >= size; });
  if (extents.empty()) return;
  FileExtent& last = extents.back();
  last.length = std::min(last.length, size - last.logical);
}

/// True if one block occurs twice in the file: such blocks may be shared within this file only.
bool hasBlocksTwice(Extents extents) {
  std::erase_if(extents, isCoded);
  std::ranges::sort(extents, {}, &FileExtent::physical);
  const auto overlap = [](const FileExtent& a, const FileExtent& b) {
    return b.physical - a.physical < a.length;
  };
  return std::ranges::adjacent_find(extents, overlap) != extents.end();
}

bool continues(const FileExtent& before, const FileExtent& extent) {
  return !isCoded(extent) && extent.flags == before.flags &&
         extent.logical == before.logical + before.length &&
         extent.physical == before.physical + before.length;
}

/// File systems may split the same run of blocks into different extents in different files.
Extents merged(const Extents& extents) {
  Extents runs;
  for (FileExtent extent : extents) {
    extent.flags &= kKindOfData;
    if (!runs.empty() && continues(runs.back(), extent)) {
      runs.back().length += extent.length;
    } else {
      runs.push_back(extent);
    }
  }
  return runs;
}

/// A digest, because the extents of all members of a large group would take much memory.
std::string textOf(std::uint64_t device, std::uint64_t size, const Extents& runs) {
  std::vector<std::uint64_t> numbers = {device, size};
  for (const FileExtent& run : runs) {
    numbers.insert(numbers.end(), {run.logical, run.physical, run.length, run.flags});
  }
  Digest digest(DigestKind::SHA512);
  std::array<std::uint8_t, Digest::length(DigestKind::SHA512)> bytes{};
  if (!digest.start() || !digest.update(numbers.data(), numbers.size() * sizeof numbers.front()) ||
      !digest.finish(bytes.data())) {
    return "";
  }
  return lowerCaseHex(bytes);
}

}  // namespace

std::optional<BlockSharing> BlockSharing::of(const std::string& path, std::size_t most) {
  const FileReadStream stream = FileReadStream::open(path, FileReadStream::Link::Refused);
  const int file = stream.descriptor();
  struct stat status {};
  if (!stream.isOpen() || ::fstat(file, &status) != 0) return std::nullopt;
  const auto size = static_cast<std::uint64_t>(status.st_size);
  // Unwritten data may replace a file's shared blocks by own ones, but never adds shared blocks.
  std::optional<Extents> extents = readExtents(file, size, 0, most);
  if (!extents || std::ranges::none_of(*extents, isShared)) return std::nullopt;
  extents = readExtents(file, size, FIEMAP_FLAG_SYNC, most);
  if (!extents) return std::nullopt;
  return from(status.st_dev, size, *std::move(extents));
}

std::optional<BlockSharing> BlockSharing::from(std::uint64_t device, std::uint64_t size,
                                               std::vector<FileExtent> extents) {
  if (!areInOrder(extents)) return std::nullopt;
  cutAtEnd(extents, size);
  if (hasBlocksTwice(extents)) return std::nullopt;
  BlockSharing sharing;
  for (const FileExtent& extent : extents) {
    (isShared(extent) ? sharing.shared_ : sharing.own_) += extent.length;
  }
  if (sharing.shared_ == 0) return std::nullopt;
  if (sharing.own_ == 0) sharing.cloneText_ = textOf(device, size, merged(extents));
  return sharing;
}

}  // namespace sorrel
