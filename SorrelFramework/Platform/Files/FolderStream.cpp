#include "SorrelFramework/Platform/Files/FolderStream.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "SorrelFramework/Platform/Files/OpenResolving.hpp"

namespace sorrel {
namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr std::size_t kBufferBytes = std::size_t{32} * 1024;

/// Record of getdents64(2).
struct DirectoryRecord {
  std::uint64_t inode;
  std::int64_t offset;
  unsigned short length;
  unsigned char type;
  char name[1];
};

FolderStream::Type typeOf(unsigned char type) {
  if (type == DT_DIR) return FolderStream::Type::Directory;
  return type == DT_UNKNOWN ? FolderStream::Type::Unknown : FolderStream::Type::Other;
}

bool isDotOrDotDot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

bool isMountPointIn(int parent, int child) {
  struct statx above {};
  struct statx below {};
  return ::statx(parent, "", AT_EMPTY_PATH, STATX_MNT_ID, &above) != 0 ||
         ::statx(child, "", AT_EMPTY_PATH, STATX_MNT_ID, &below) != 0 || above.stx_mnt_id != below.stx_mnt_id;
}

}  // namespace

FolderStream::FolderStream() : buffer_(kBufferBytes) {}

void FolderStream::start(int folder) {
  folder_ = folder;
  filled_ = at_ = 0;
  error_ = 0;
}

const FolderStream::Entry* FolderStream::next() {
  for (;;) {
    if (at_ == filled_) {
      const long got = ::syscall(SYS_getdents64, folder_, buffer_.data(), buffer_.size());
      if (got < 0) error_ = errno;
      if (got <= 0) return nullptr;
      filled_ = static_cast<std::size_t>(got);
      at_ = 0;
    }
    const auto* record = reinterpret_cast<const DirectoryRecord*>(buffer_.data() + at_);
    at_ += record->length;
    const char* name = reinterpret_cast<const char*>(record) + offsetof(DirectoryRecord, name);
    if (isDotOrDotDot(name)) continue;
    entry_ = {name, std::strlen(name), typeOf(record->type)};
    return &entry_;
  }
}

FileDescriptor openFolderIn(int parent, const char* name) {
  constexpr std::uint64_t resolve = RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS | RESOLVE_BENEATH;
  if (auto folder = openResolving(parent, name, kFolderFlags, resolve)) {
    return std::move(*folder);
  }
  FileDescriptor folder(::openat(parent, name, kFolderFlags | O_NOFOLLOW));
  if (folder.isOpen() && isMountPointIn(parent, folder.get())) {
    folder.reset();
    errno = EXDEV;
  }
  return folder;
}

}  // namespace sorrel
