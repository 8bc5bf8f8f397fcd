#include "SorrelFramework/Platform/Machine/MountedVolumes.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "SorrelFramework/Platform/Machine/Host.hpp"

namespace sorrel {
namespace {

struct FileSystem {
  std::string_view name;
  bool isNetwork;
};

// File systems that keep a user's files. Everything else of a mount table (proc, tmpfs, overlay, squashfs of
// snaps, portals of the desktop) belongs to the system.
constexpr std::array<FileSystem, 24> kFileSystems = {
    {{"ext2", false},    {"ext3", false},  {"ext4", false},     {"xfs", false},      {"btrfs", false},
     {"f2fs", false},    {"zfs", false},   {"bcachefs", false}, {"jfs", false},      {"reiserfs", false},
     {"vfat", false},    {"exfat", false}, {"ntfs", false},     {"ntfs3", false},    {"fuseblk", false},
     {"hfsplus", false}, {"apfs", false},  {"iso9660", false},  {"udf", false},      {"nfs", true},
     {"nfs4", true},     {"cifs", true},   {"smb3", true},      {"fuse.sshfs", true}}};

/// One line of the table, as far as it matters.
struct Line {
  std::string device;  // "major:minor"
  std::string root;    // the folder of the device that is mounted
  MountPoint mount;
};

std::vector<std::string_view> fieldsOf(std::string_view line) {
  std::vector<std::string_view> fields;
  while (!line.empty()) {
    const std::size_t end = std::min(line.find(' '), line.size());
    if (end > 0) fields.push_back(line.substr(0, end));
    line.remove_prefix(std::min(end + 1, line.size()));
  }
  return fields;
}

bool isOctal(char c) { return c >= '0' && c <= '7'; }

/// Undoes the \ooo of blanks, tabs, newlines and backslashes.
std::string unescaped(std::string_view field) {
  std::string text;
  for (std::size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size() && isOctal(field[i + 1]) && isOctal(field[i + 2]) &&
        isOctal(field[i + 3])) {
      text += static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 + (field[i + 3] - '0'));
      i += 3;
    } else {
      text += field[i];
    }
  }
  return text;
}

const FileSystem* knownFileSystem(std::string_view name) {
  const auto* const found = std::ranges::find(kFileSystems, name, &FileSystem::name);
  return found == kFileSystems.end() ? nullptr : found;
}

// id parent major:minor root MOUNT-POINT options optional-fields... - TYPE source super-options
std::optional<Line> parseLine(std::string_view text) {
  const std::vector<std::string_view> fields = fieldsOf(text);
  constexpr std::size_t kFirstOptional = 6;
  if (fields.size() < kFirstOptional) return std::nullopt;
  const auto separator = std::find(fields.begin() + kFirstOptional, fields.end(), "-");
  if (separator == fields.end() || separator + 1 == fields.end()) return std::nullopt;
  MountPoint mount{unescaped(fields[4]), unescaped(*(separator + 1))};
  if (mount.path.empty() || mount.path.front() != '/') return std::nullopt;
  const FileSystem* const known = knownFileSystem(mount.fileSystem);
  mount.isNetwork = known != nullptr && known->isNetwork;
  return Line{std::string(fields[2]), std::string(fields[3]), std::move(mount)};
}

std::vector<Line> parseTable(std::string_view table) {
  std::vector<Line> lines;
  while (!table.empty()) {
    const std::size_t end = std::min(table.find('\n'), table.size());
    if (auto line = parseLine(table.substr(0, end))) {
      // Mounted over another one: that can no longer be reached by this path.
      std::erase_if(lines, [&](const Line& other) { return other.mount.path == line->mount.path; });
      lines.push_back(std::move(*line));
    }
    table.remove_prefix(std::min(end + 1, table.size()));
  }
  return lines;
}

std::string contentOf(const char* path) {
  std::string content;
  const int file = ::open(path, O_RDONLY | O_CLOEXEC);
  if (file < 0) return content;
  std::array<char, 16384> buffer;
  for (ssize_t got = 0; (got = ::read(file, buffer.data(), buffer.size())) > 0;) {
    content.append(buffer.data(), static_cast<std::size_t>(got));
  }
  ::close(file);
  return content;
}

bool isRealFolder(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::vector<std::string> foldersIn(const std::string& parent) {
  std::vector<std::string> folders;
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(parent.c_str()), &::closedir);
  while (const dirent* const entry = directory ? ::readdir(directory.get()) : nullptr) {
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    std::string path = parent + '/' + std::string(name);
    if (isRealFolder(path)) folders.push_back(std::move(path));
  }
  std::ranges::sort(folders);
  return folders;
}

std::vector<URL> volumesOfMac(const Host& host) {
  std::vector<URL> urls = {URL::fileURL(host.root().empty() ? "/" : host.root(), true)};
  for (const std::string& path : foldersIn(host.followingLinks(host.root() + "/Volumes")))
    urls.push_back(URL::fileURL(path, true));
  return urls;
}

std::vector<URL> volumesOfDesktop(bool withNetwork) {
  std::vector<URL> urls;
  for (const MountPoint& mount : mountPointsIn(contentOf("/proc/self/mountinfo"))) {
    if (mount.isNetwork && !withNetwork) continue;
    // A single file can be a mount point too, in containers for instance.
    if (mount.isNetwork || isRealFolder(mount.path)) urls.push_back(URL::fileURL(mount.path, true));
  }
  return urls;
}

std::vector<URL> volumes(bool withNetwork) {
  const Host& host = Host::current();
  return host.layout() == Host::Layout::MacVolume ? volumesOfMac(host) : volumesOfDesktop(withNetwork);
}

}  // namespace

std::vector<URL> mountedVolumeURLs() { return volumes(true); }
std::vector<URL> localVolumeURLs() { return volumes(false); }

std::vector<MountPoint> mountPointsIn(std::string_view mountTable) {
  std::vector<Line> lines = parseTable(mountTable);
  std::stable_partition(lines.begin(), lines.end(), [](const Line& line) { return line.mount.path == "/"; });
  std::vector<MountPoint> mounts;
  std::set<std::pair<std::string, std::string>> seen;
  for (Line& line : lines) {
    const bool isRoot = line.mount.path == "/";
    if (!isRoot && knownFileSystem(line.mount.fileSystem) == nullptr) continue;
    if (seen.emplace(line.device, line.root).second) mounts.push_back(std::move(line.mount));
  }
  return mounts;
}

}  // namespace sorrel
