#include "SorrelFramework/Platform/Files/FileReadStream.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace sorrel {
namespace {

std::atomic<const FileReadStream::ReadFunc*> replacement{nullptr};

/// Sets errno if it is not.
bool isRegular(const struct stat& status) {
  if (S_ISREG(status.st_mode)) return true;
  errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  return false;
}

}  // namespace

FileReadStream FileReadStream::open(const std::string& path, Link link) {
  if (path.find('\0') != std::string::npos) {
    errno = ENOENT;
    return {};
  }
  const bool isFollowed = link == Link::Followed;
  struct stat status {};
  const int lookFlags = AT_NO_AUTOMOUNT | (isFollowed ? 0 : AT_SYMLINK_NOFOLLOW);
  if (::fstatat(AT_FDCWD, path.c_str(), &status, lookFlags) != 0 || !isRegular(status)) return {};
  // Checked again below, as the name may refer to another item by now; O_NONBLOCK is for that case too.
  const int openFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | (isFollowed ? 0 : O_NOFOLLOW);
  FileDescriptor file(::open(path.c_str(), openFlags));
  if (!file.isOpen() || ::fstat(file.get(), &status) != 0 || !isRegular(status)) return {};
  return FileReadStream(std::move(file));
}

std::ptrdiff_t FileReadStream::read(void* bytes, std::size_t count) {
  if (const ReadFunc* const instead = replacement.load(std::memory_order_acquire)) {
    return (*instead)(file_.get(), bytes, count);
  }
  for (;;) {
    const ssize_t got = ::read(file_.get(), bytes, count);
    if (got >= 0 || errno != EINTR) return got;
  }
}

void FileReadStream::setReadForTesting(const ReadFunc* read) {
  replacement.store(read, std::memory_order_release);
}

}  // namespace sorrel
