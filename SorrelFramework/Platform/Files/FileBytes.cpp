#include "SorrelFramework/Platform/Files/FileBytes.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <random>
#include <utility>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel {

namespace {

constexpr std::size_t kFirstChunk = 4096;
constexpr int kNameAttempts = 100;

bool isRegular(const FileDescriptor& file, struct stat& status) {
  return file.isOpen() && ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
}

std::string temporaryName(std::string_view name) {
  // Leaves room for the suffix even if the name has the maximum length.
  static constexpr std::size_t kLongestStem = 200;
  std::random_device random;
  char suffix[24];
  std::snprintf(suffix, sizeof suffix, ".%08x%08x.tmp", random(), random());
  return "." + std::string(name.substr(0, kLongestStem)) + suffix;
}

/// One replacement of a file; all steps are relative to the folder that was opened once.
class Replacement {
 public:
  Replacement(const std::string& folder, std::string name)
      : folder_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)), name_(std::move(name)) {}
  ~Replacement() {
    if (!temporary_.empty()) ::unlinkat(folder_.get(), temporary_.c_str(), 0);
  }
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  bool run(std::string_view bytes) {
    if (!folder_.isOpen() || !lookAtTarget()) return false;
    FileDescriptor file(createTemporary());
    if (!file.isOpen() || !takeOverRights(file.get())) return false;
    if (!writeAll(file.get(), bytes) || ::fsync(file.get()) != 0 || !file.close()) return false;
    if (::renameat(folder_.get(), temporary_.c_str(), folder_.get(), name_.c_str()) != 0) return false;
    temporary_.clear();
    // The new content is in place even if this fails; some file systems can't synchronise a folder.
    ::fsync(folder_.get());
    return true;
  }

 private:
  /// The target may be missing; if it exists it must be a regular file itself.
  bool lookAtTarget() {
    const FileDescriptor target(::openat(folder_.get(), name_.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!target.isOpen()) return errno == ENOENT;
    exists_ = isRegular(target, old_);
    return exists_;
  }

  int createTemporary() {
    const mode_t mode = exists_ ? S_IRUSR | S_IWUSR : 0666;
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
      std::string candidate = temporaryName(name_);
      const int fd = ::openat(folder_.get(), candidate.c_str(),
                              O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
      if (fd >= 0) temporary_ = std::move(candidate);
      if (fd >= 0 || errno != EEXIST) return fd;
    }
    return -1;
  }

  bool takeOverRights(int fd) const {
    if (!exists_) return true;
    struct stat status {};
    if (::fstat(fd, &status) != 0) return false;
    const bool sameOwner = status.st_uid == old_.st_uid && status.st_gid == old_.st_gid;
    if (!sameOwner && ::fchown(fd, old_.st_uid, old_.st_gid) != 0) return false;
    return ::fchmod(fd, old_.st_mode & 07777) == 0;
  }

  FileDescriptor folder_;
  std::string name_;
  std::string temporary_;
  bool exists_ = false;
  struct stat old_ {};
};

}  // namespace

std::optional<std::string> readFileBytes(const std::string& path, std::size_t limit, LinkAtEnd linkAtEnd) {
  if (path.find('\0') != path.npos) return std::nullopt;
  // O_NONBLOCK: opening a FIFO would wait for its other end.
  const int refusal = linkAtEnd == LinkAtEnd::Refused ? O_NOFOLLOW : 0;
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | refusal));
  struct stat status {};
  if (!isRegular(file, status) || std::cmp_greater(status.st_size, limit)) return std::nullopt;
  // Read to the end regardless of the reported size: it may change meanwhile, and some file systems report 0.
  std::string bytes(std::max(static_cast<std::size_t>(status.st_size) + 1, kFirstChunk), '\0');
  std::size_t length = 0;
  for (;;) {
    const ssize_t count = ::read(file.get(), bytes.data() + length, bytes.size() - length);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    length += static_cast<std::size_t>(count);
    if (length > limit) return std::nullopt;
    if (length == bytes.size()) bytes.resize(bytes.size() * 2);
  }
  bytes.resize(length);
  return bytes;
}

bool writeFileAtomically(const std::string& path, std::string_view bytes) {
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == path.npos ? "." : path.substr(0, slash + 1);
  const std::string name = slash == path.npos ? path : path.substr(slash + 1);
  if (name.empty() || path.find('\0') != path.npos) return false;
  return Replacement(folder, name).run(bytes);
}

}  // namespace sorrel
