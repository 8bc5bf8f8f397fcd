#include "SorrelFramework/HelpTool/SealedMemory.hpp"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <utility>

namespace sorrel {
namespace {

constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL;

/// Huge pages are sealed alike, but reading them may raise a signal when the machine has none left.
bool isOrdinaryMemory(int descriptor) {
  struct statfs system {};
  return ::fstatfs(descriptor, &system) == 0 && system.f_type == TMPFS_MAGIC;
}

/// The first reader of a hole pays for its memory; the sender must have paid for all of it.
bool hasHoles(const struct stat& status) {
  constexpr blkcnt_t kBlock = 512;
  return status.st_blocks < (status.st_size + kBlock - 1) / kBlock;
}

bool isSealed(int descriptor) {
  const int seals = ::fcntl(descriptor, F_GET_SEALS);
  return seals >= 0 && (seals & kSeals) == kSeals;
}

}  // namespace

SealedMemory::Builder::Builder()
    : memory_(::memfd_create("sorrel-message", MFD_CLOEXEC | MFD_ALLOW_SEALING)),
      isWhole_(memory_.isOpen()) {}

void SealedMemory::Builder::append(std::string_view bytes) {
  if (!isWhole_) return;
  if (buffer_.size() + bytes.size() > kBufferSize) isWhole_ = flush();
  if (bytes.size() < kBufferSize) {
    buffer_ += bytes;
  } else {
    isWhole_ = isWhole_ && writeAll(memory_.get(), bytes);
  }
}

bool SealedMemory::Builder::flush() {
  const bool isWritten = writeAll(memory_.get(), buffer_);
  buffer_.clear();
  return isWritten;
}

FileDescriptor SealedMemory::Builder::seal() {
  if (!isWhole_ || !flush()) return FileDescriptor();
  if (::fcntl(memory_.get(), F_ADD_SEALS, kSeals) != 0) return FileDescriptor();
  return std::move(memory_);
}

FileDescriptor SealedMemory::make(std::string_view bytes) {
  Builder builder;
  builder.append(bytes);
  return builder.seal();
}

FileDescriptor SealedMemory::forFilling(std::size_t size) {
  FileDescriptor memory(::memfd_create("sorrel-message", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (!memory.isOpen() || ::ftruncate(memory.get(), static_cast<off_t>(size)) != 0) return FileDescriptor();
  // Without GROW the caller could hide holes: blocks beyond the end count as well.
  const bool isFixed = ::fcntl(memory.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW) == 0;
  return isFixed ? std::move(memory) : FileDescriptor();
}

std::optional<SealedMemory> SealedMemory::sealFilled(const FileDescriptor& memory) {
  // Fails while the memory is mapped for writing anywhere.
  if (::fcntl(memory.get(), F_ADD_SEALS, kSeals) != 0) return std::nullopt;
  return map(memory.get(), SIZE_MAX);
}

std::optional<SealedMemory> SealedMemory::map(int descriptor, std::size_t limit) {
  if (!isSealed(descriptor) || !isOrdinaryMemory(descriptor)) return std::nullopt;
  struct stat status {};
  if (::fstat(descriptor, &status) != 0 || status.st_size <= 0) return std::nullopt;
  const auto size = static_cast<std::size_t>(status.st_size);
  if (size > limit || hasHoles(status)) return std::nullopt;
  void* const start = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0);
  if (start == MAP_FAILED) return std::nullopt;
  return SealedMemory(std::string_view(static_cast<const char*>(start), size));
}

SealedMemory::~SealedMemory() {
  if (!bytes_.empty()) ::munmap(const_cast<char*>(bytes_.data()), bytes_.size());
}

}  // namespace sorrel
