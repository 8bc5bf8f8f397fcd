#include "Helper/FileShredder.hpp"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace sorrel::helper {
namespace {

using Block = std::vector<unsigned char>;

/// 0 if all of it was written; a short write is a failure.
int writeAt(int file, const Block& block, std::size_t size, std::size_t offset) {
  const ssize_t written = ::pwrite(file, block.data(), size, static_cast<off_t>(offset));
  if (written < 0) return errno;
  return static_cast<std::size_t>(written) == size ? 0 : EIO;
}

std::mt19937_64 seededGenerator() {
  std::uint64_t seed = 0;
  if (::getrandom(&seed, sizeof seed, 0) != sizeof seed) seed = std::mt19937_64::default_seed;
  return std::mt19937_64(seed);
}

void fillRandomly(Block& block, std::mt19937_64& generator) {
  for (std::size_t at = 0; at < block.size(); at += sizeof(std::uint64_t)) {
    const std::uint64_t word = generator();
    std::memcpy(block.data() + at, &word, sizeof word);
  }
}

}  // namespace

int FileShredder::run() {
  struct stat status {};
  if (::fstat(file_, &status) != 0) return errno;
  if (!S_ISREG(status.st_mode)) return EINVAL;
  size_ = static_cast<std::size_t>(status.st_size);
  for (const Fill fill : {Fill::Ones, Fill::Random, Fill::Zeros}) {
    if (const int error = pass(fill)) return error;
  }
  return verify();
}

int FileShredder::pass(Fill fill) {
  struct stat status {};
  if (::fstat(file_, &status) != 0) return errno;
  if (status.st_nlink != 1) return EMLINK;
  Block block(kBlock, fill == Fill::Ones ? 0xFF : 0x00);
  std::mt19937_64 generator = seededGenerator();
  for (std::size_t offset = 0; offset < size_; offset += kBlock) {
    if (fill == Fill::Random) fillRandomly(block, generator);
    if (const int error = writeAt(file_, block, std::min(kBlock, size_ - offset), offset)) return error;
  }
  return sync_(file_) == 0 ? 0 : errno;
}

int FileShredder::verify() {
  // From the disk, as far as the system lets go of what it has in memory.
  static_cast<void>(::posix_fadvise(file_, 0, 0, POSIX_FADV_DONTNEED));
  Block block(kBlock);
  for (std::size_t offset = 0; offset < size_; offset += kBlock) {
    const std::size_t size = std::min(kBlock, size_ - offset);
    const ssize_t got = ::pread(file_, block.data(), size, static_cast<off_t>(offset));
    if (got < 0) return errno;
    if (static_cast<std::size_t>(got) != size) return EIO;
    const auto end = block.begin() + got;
    if (std::any_of(block.begin(), end, [](unsigned char byte) { return byte != 0; })) return EIO;
  }
  return 0;
}

}  // namespace sorrel::helper
