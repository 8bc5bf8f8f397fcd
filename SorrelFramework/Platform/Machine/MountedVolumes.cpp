#include "SorrelFramework/Platform/Machine/MountedVolumes.hpp"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <memory>
#include <set>
#include <utility>

#include "SorrelFramework/Platform/Files/MountTable.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"

namespace sorrel {
namespace {

struct FileSystem {
  std::string_view name;
  bool isNetwork;
};

// File systems that hold a user's files. Everything else in a mount table (proc, tmpfs, overlay, squashfs of
// snaps, portals of the desktop) belongs to the system.
constexpr std::array<FileSystem, 24> kFileSystems = {
    {{"ext2", false},    {"ext3", false},  {"ext4", false},     {"xfs", false},      {"btrfs", false},
     {"f2fs", false},    {"zfs", false},   {"bcachefs", false}, {"jfs", false},      {"reiserfs", false},
     {"vfat", false},    {"exfat", false}, {"ntfs", false},     {"ntfs3", false},    {"fuseblk", false},
     {"hfsplus", false}, {"apfs", false},  {"iso9660", false},  {"udf", false},      {"nfs", true},
     {"nfs4", true},     {"cifs", true},   {"smb3", true},      {"fuse.sshfs", true}}};

const FileSystem* knownFileSystem(std::string_view name) {
  const auto* const found = std::ranges::find(kFileSystems, name, &FileSystem::name);
  return found == kFileSystems.end() ? nullptr : found;
}

/// If several mounts have one mount point, only the last can be reached by this path.
std::vector<Mount> reachableMounts(std::string_view mountTable) {
  std::vector<Mount> mounts;
  for (Mount& mount : mountsIn(mountTable)) {
    std::erase_if(mounts, [&](const Mount& other) { return other.point == mount.point; });
    mounts.push_back(std::move(mount));
  }
  return mounts;
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
  for (const MountPoint& mount : mountPointsIn(MountSource::ofThisProcess()->read())) {
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
  std::vector<Mount> mounts = reachableMounts(mountTable);
  std::stable_partition(mounts.begin(), mounts.end(), [](const Mount& mount) { return mount.point == "/"; });
  std::vector<MountPoint> volumes;
  std::set<std::pair<std::string, std::string>> seen;
  for (Mount& mount : mounts) {
    const FileSystem* const known = knownFileSystem(mount.type);
    if (mount.point != "/" && known == nullptr) continue;
    if (!seen.emplace(mount.device, mount.root).second) continue;
    const bool isNetwork = known != nullptr && known->isNetwork;
    volumes.push_back({std::move(mount.point), std::move(mount.type), isNetwork});
  }
  return volumes;
}

}  // namespace sorrel
