#include "Tests/Support/TreeRemoval.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::test {
namespace {

namespace fs = std::filesystem;

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW;

std::vector<std::string> namesIn(int folder) {
  std::vector<std::string> names;
  DIR* const stream = ::fdopendir(::openat(folder, ".", kFolderFlags));
  if (stream == nullptr) return names;
  while (const dirent* entry = ::readdir(stream)) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  ::closedir(stream);
  return names;
}

/// Opened, readable and writable: a test may have removed its own permissions.
FileDescriptor openOwnFolder(int parent, const std::string& name) {
  struct statx found {};
  if (::statx(parent, name.c_str(), AT_SYMLINK_NOFOLLOW, STATX_TYPE, &found) != 0) return {};
  if (!S_ISDIR(found.stx_mode) || (found.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0) return {};
  ::fchmodat(parent, name.c_str(), S_IRWXU, 0);
  return FileDescriptor(::openat(parent, name.c_str(), kFolderFlags));
}

/// True if the item lies in a TemporaryFolder, or is one, after links above it are resolved.
bool isOfTheKit(const std::string& path) {
  const fs::path item(path);
  if (!item.is_absolute() || !item.has_filename() || item.filename() == "..") return false;
  std::error_code error;
  const fs::path place = fs::canonical(item.parent_path(), error) / item.filename();
  return !error && std::ranges::any_of(place, [](const fs::path& name) {
    return name.string().starts_with(TemporaryFolder::kPrefix);
  });
}

struct Level {
  std::string name;  // in the folder above
  std::vector<std::string> pending;
};

}  // namespace

bool removeTree(const std::string& path) {
  if (!isOfTheKit(path)) return false;
  FileDescriptor folder = openOwnFolder(AT_FDCWD, path);
  if (!folder.isOpen()) return ::unlink(path.c_str()) == 0 || errno == ENOENT;
  std::vector<Level> levels;
  levels.push_back({path, namesIn(folder.get())});
  while (!levels.empty()) {
    if (levels.back().pending.empty()) {
      const std::string done = std::move(levels.back().name);
      levels.pop_back();
      if (levels.empty()) break;
      folder = FileDescriptor(::openat(folder.get(), "..", kFolderFlags));
      if (::unlinkat(folder.get(), done.c_str(), AT_REMOVEDIR) != 0) return false;
      continue;
    }
    std::string name = std::move(levels.back().pending.back());
    levels.back().pending.pop_back();
    if (::unlinkat(folder.get(), name.c_str(), 0) == 0) continue;
    FileDescriptor below = openOwnFolder(folder.get(), name);
    if (!below.isOpen()) return false;
    folder = std::move(below);
    levels.push_back({std::move(name), namesIn(folder.get())});
  }
  return ::rmdir(path.c_str()) == 0;
}

}  // namespace sorrel::test
