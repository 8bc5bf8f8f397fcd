#include "SorrelFramework/Platform/FolderStream.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "SorrelFramework/Platform/Host.hpp"

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

namespace {

/// openat2(2), which keeps `resolve` for every component; nothing on kernels without it.
std::optional<FileDescriptor> openResolving(int folder, const char* name, std::uint64_t resolve) {
  static std::atomic<bool> isMissing{false};
  if (isMissing.load(std::memory_order_relaxed)) return std::nullopt;
  open_how how{};
  how.flags = kFolderFlags;
  how.resolve = resolve;
  const long opened = ::syscall(SYS_openat2, folder, name, &how, sizeof how);
  if (opened < 0 && errno == ENOSYS) {
    isMissing.store(true, std::memory_order_relaxed);
    return std::nullopt;
  }
  return FileDescriptor(static_cast<int>(opened));
}

}  // namespace

FileDescriptor openFolder(const std::string& path) {
  if (path.find('\0') != std::string::npos) {
    errno = ENOENT;
    return {};
  }
  const std::string& root = Host::current().root();
  const std::string_view whole = path;
  if (!root.empty() && whole.starts_with(root) && whole.substr(root.size()).starts_with('/')) {
    const FileDescriptor top(::open(root.c_str(), kFolderFlags));
    const std::string below = '.' + std::string(whole.substr(root.size()));
    if (!top.isOpen()) return {};
    if (auto folder = openResolving(top.get(), below.c_str(), RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS)) {
      return std::move(*folder);
    }
  }
  return FileDescriptor(::open(path.c_str(), kFolderFlags));
}

FileDescriptor openFolderIn(int parent, const char* name) {
  if (auto folder = openResolving(parent, name, RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS | RESOLVE_BENEATH)) {
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
