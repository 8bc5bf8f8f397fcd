#include "SorrelFramework/Platform/Machine/DesktopTrash.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstddef>
#include <filesystem>
#include <system_error>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "SorrelFramework/Platform/Files/FileBytes.hpp"
#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {
namespace {

constexpr std::string_view kInfoSuffix = ".trashinfo";
constexpr const char* kSizesFile = "directorysizes";
constexpr std::size_t kMostSizes = std::size_t{64} << 20U;
constexpr int kMostAttempts = 3;

bool isSame(const FileStatus& one, const FileStatus& other) {
  return one.device == other.device && one.inode == other.inode;
}

std::optional<FileStatus> ownFolder(const std::string& path) {
  auto status = statusOf(path);
  if (!status || !status->isDirectory() || status->uid != Host::current().userID()) return std::nullopt;
  return status;
}

/// The target folder if `path` is a link of the user's own, else `path`.
std::string behindOwnLink(const std::string& path) {
  const auto status = statusOf(path);
  if (!status || !S_ISLNK(status->mode) || status->uid != Host::current().userID()) return path;
  std::error_code error;
  const std::filesystem::path real = std::filesystem::canonical(path, error);
  return error ? path : real.string();
}

bool isMountPoint(const std::string& path) {
  struct statx found {};
  constexpr int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
  return ::statx(AT_FDCWD, path.c_str(), flags, 0, &found) == 0 &&
         (found.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

/// True if the folder `trash` is at a path where a volume may have its trash.
bool isPlaceOnVolume(const std::string& trash) {
  const std::string uid = std::to_string(Host::current().userID());
  const std::string_view name = lastPathComponent(trash);
  const std::string above = deletingLastPathComponent(trash);
  if (name == ".Trash-" + uid) return isMountPoint(above);
  if (name != uid || lastPathComponent(above) != ".Trash") return false;
  const auto shared = statusOf(above);
  return shared && shared->isDirectory() && shared->isSticky() &&
         isMountPoint(deletingLastPathComponent(above));
}

/// The text without the lines "SIZE TIME NAME" of the items that are gone; a line of another form stays.
std::string withoutLinesOf(std::string_view sizes, const std::function<bool(const std::string&)>& isGone) {
  std::string kept;
  while (!sizes.empty()) {
    const std::size_t end = sizes.find('\n');
    const std::string_view line = sizes.substr(0, end);
    const std::string_view whole = sizes.substr(0, end == std::string_view::npos ? end : end + 1);
    sizes.remove_prefix(whole.size());
    const std::size_t time = line.find(' ');
    const std::size_t name = time == std::string_view::npos ? time : line.find(' ', time + 1);
    if (name != std::string_view::npos && isGone(percentDecodedBytes(line.substr(name + 1)))) continue;
    kept += whole;
  }
  return kept;
}

std::string pathOfOpen(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

}  // namespace

std::optional<DesktopTrash> DesktopTrash::withFiles(const std::string& files) {
  const Host& host = Host::current();
  if (host.layout() == Host::Layout::MacVolume || lastPathComponent(files) != "files") return std::nullopt;
  const std::string named = deletingLastPathComponent(files);
  std::string folder = behindOwnLink(named);
  const auto trash = ownFolder(folder);
  if (!trash || !ownFolder(folder + "/files")) return std::nullopt;
  const auto home = statusOf(behindOwnLink(host.applicationSupportFolder() + "/Trash"));
  if (!(home && isSame(*home, *trash)) && !isPlaceOnVolume(named)) return std::nullopt;
  return DesktopTrash(std::move(folder));
}

std::string DesktopTrash::infoFile(std::string_view name) const {
  return infoFolder() + '/' + std::string(name) + std::string(kInfoSuffix);
}

std::optional<std::string_view> DesktopTrash::itemOfInfo(std::string_view entry) {
  if (entry.size() <= kInfoSuffix.size() || !entry.ends_with(kInfoSuffix)) return std::nullopt;
  return entry.substr(0, entry.size() - kInfoSuffix.size());
}

bool DesktopTrash::removeSizes(const std::function<bool(const std::string& name)>& isGone) const {
  const FileDescriptor trash(::open(folder_.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  const auto owner = statusOf(trash.get());
  if (!trash.isOpen() || !owner || owner->uid != Host::current().userID()) return false;
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    const FileDescriptor file(::openat(trash.get(), kSizesFile, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!file.isOpen()) return true;
    const auto found = statusOf(file.get());
    if (!found || !found->isRegularFile() || found->uid != owner->uid) return false;
    const auto sizes = readFileBytes(pathOfOpen(file.get()), kMostSizes);
    if (!sizes) return false;
    const std::string kept = withoutLinesOf(*sizes, isGone);
    if (kept.size() == sizes->size()) return true;
    // Another program has replaced the file meanwhile: its lines are kept.
    const auto now = statusOf(trash.get(), kSizesFile);
    if (now && isSame(*now, *found))
      return writeFileAtomically(pathOfOpen(trash.get()) + '/' + kSizesFile, kept);
  }
  return false;
}

}  // namespace sorrel
