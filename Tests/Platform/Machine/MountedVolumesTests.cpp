#include "SorrelFramework/Platform/Machine/MountedVolumes.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel {
namespace {

using Texts = std::vector<std::string>;

constexpr std::string_view kRoot = "29 1 8:2 / / rw,relatime shared:1 - ext4 /dev/sda2 rw\n";

Texts paths(std::string_view table) {
  Texts result;
  for (const MountPoint& mount : mountPointsIn(table)) result.push_back(mount.path);
  return result;
}

std::string withRoot(std::string_view lines) { return std::string(kRoot) + std::string(lines); }

Texts texts(const std::vector<URL>& urls) {
  Texts result;
  for (const URL& url : urls) result.push_back(url.absoluteString());
  return result;
}

TEST(MountedVolumes, emptyTableHasNoVolume) { EXPECT_EQ(paths(""), Texts{}); }

TEST(MountedVolumes, fieldsAreReadAroundAnyNumberOfOptionalOnes) {
  EXPECT_EQ(mountPointsIn("29 1 8:2 / / rw - ext4 /dev/sda2 rw\n"
                          "30 29 8:3 / /home rw shared:1 master:2 propagate_from:3 - xfs /dev/sda3 rw"),
            (std::vector<MountPoint>{{"/", "ext4", false}, {"/home", "xfs", false}}));
}

TEST(MountedVolumes, networkMountsAreMarked) {
  const auto mounts =
      mountPointsIn(withRoot("40 29 0:50 / /mnt/nas rw - nfs4 nas:/x rw\n"
                             "41 29 0:51 / /mnt/ssh rw - fuse.sshfs host: rw\n"));
  ASSERT_EQ(mounts.size(), 3U);
  EXPECT_FALSE(mounts[0].isNetwork);
  EXPECT_TRUE(mounts[1].isNetwork);
  EXPECT_TRUE(mounts[2].isNetwork);
}

TEST(MountedVolumes, escapesOfThePathAreUndone) {
  EXPECT_EQ(paths(withRoot("30 29 8:17 / /media/a/My\\040Disk\\011x\\012y\\134z rw - vfat /dev/sdb1 rw\n")),
            (Texts{"/", "/media/a/My Disk\tx\ny\\z"}));
  EXPECT_EQ(paths(withRoot("30 29 8:17 / /mnt/a\\04 rw - vfat /dev/sdb1 rw\n")), (Texts{"/", "/mnt/a\\04"}));
}

TEST(MountedVolumes, systemFileSystemsAreSkipped) {
  for (const char* type :
       {"proc",       "sysfs",           "devtmpfs",    "devpts",        "tmpfs",     "ramfs",
        "mqueue",     "hugetlbfs",       "cgroup",      "cgroup2",       "pstore",    "bpf",
        "securityfs", "selinuxfs",       "debugfs",     "tracefs",       "configfs",  "efivarfs",
        "fusectl",    "binfmt_misc",     "autofs",      "rpc_pipefs",    "nsfs",      "squashfs",
        "overlay",    "fuse.gvfsd-fuse", "fuse.portal", "fuse.snapfuse", "fuse.lxcfs"}) {
    EXPECT_EQ(paths(withRoot("30 29 0:40 / /x rw - " + std::string(type) + " none rw\n")), Texts{"/"})
        << type;
  }
}

TEST(MountedVolumes, fileSystemsOfUsersAreKept) {
  for (const char* type : {"ext2",    "ext3", "ext4",     "xfs",   "btrfs", "f2fs",  "zfs",  "bcachefs",
                           "jfs",     "vfat", "reiserfs", "exfat", "ntfs",  "ntfs3", "udf",  "fuseblk",
                           "hfsplus", "apfs", "iso9660",  "nfs",   "nfs4",  "cifs",  "smb3", "fuse.sshfs"}) {
    EXPECT_EQ(paths(withRoot("30 29 0:40 / /x rw - " + std::string(type) + " none rw\n")), (Texts{"/", "/x"}))
        << type;
  }
}

TEST(MountedVolumes, rootIsKeptWhateverItsType) {
  EXPECT_EQ(paths("29 1 0:30 / / rw - overlay overlay rw\n"), Texts{"/"});
}

TEST(MountedVolumes, rootComesFirst) {
  EXPECT_EQ(paths("30 29 8:3 / /home rw - ext4 /dev/sda3 rw\n" + std::string(kRoot)), (Texts{"/", "/home"}));
}

TEST(MountedVolumes, bindMountIsShownOnce) {
  EXPECT_EQ(paths(withRoot("30 29 8:17 / /media/a/Disk rw - ext4 /dev/sdb1 rw\n"
                           "31 29 8:17 / /srv/disk rw - ext4 /dev/sdb1 rw\n"
                           "32 29 8:2 / /mnt/again rw - ext4 /dev/sda2 rw\n")),
            (Texts{"/", "/media/a/Disk"}));
}

TEST(MountedVolumes, foldersOfOneDeviceAreVolumesOfTheirOwn) {
  EXPECT_EQ(
      paths("29 1 0:25 /@ / rw - btrfs /dev/sda2 rw\n30 29 0:25 /@home /home rw - btrfs /dev/sda2 rw\n"),
      (Texts{"/", "/home"}));
}

TEST(MountedVolumes, laterLineHidesTheEarlierOneAtItsPoint) {
  const auto mounts =
      mountPointsIn(withRoot("30 29 8:17 / /mnt rw - ext4 /dev/sdb1 rw\n"
                             "31 30 8:33 / /mnt rw - vfat /dev/sdc1 rw\n"));
  EXPECT_EQ(mounts, (std::vector<MountPoint>{{"/", "ext4", false}, {"/mnt", "vfat", false}}));
  EXPECT_EQ(
      paths(withRoot("30 29 8:17 / /mnt rw - ext4 /dev/sdb1 rw\n31 30 0:9 / /mnt rw - tmpfs tmpfs rw\n")),
      Texts{"/"});
}

TEST(MountedVolumes, hiddenLineDoesNotCountAsTheFirstMountOfItsDevice) {
  EXPECT_EQ(paths(withRoot("30 29 8:17 / /mnt rw - ext4 /dev/sdb1 rw\n31 30 0:9 / /mnt rw - tmpfs tmpfs rw\n"
                           "32 29 8:17 / /srv rw - ext4 /dev/sdb1 rw\n")),
            (Texts{"/", "/srv"}));
}

TEST(MountedVolumes, lineThatCannotBeReadIsSkipped) {
  EXPECT_EQ(paths("nonsense\n\n30 29 8:17 / /a rw ext4 /dev/sdb1 rw\n31 29 8:18 / relative rw - ext4 x rw\n"
                  "32 29 8:19 / /b rw -\n" +
                  std::string(kRoot)),
            Texts{"/"});
}

class MountedVolumesOfHost : public testing::Test {
 protected:
  void TearDown() override { Host::install(Host::linuxDesktop({})); }
  test::TemporaryFolder folder_;
};

TEST_F(MountedVolumesOfHost, folderOfVolumesThatIsALinkIsNotFollowedOffTheVolume) {
  const test::TemporaryFolder machine;
  machine.folder("USB");
  ASSERT_EQ(::symlink(machine.path().c_str(), folder_.path("Volumes").c_str()), 0);
  Host::install(Host::macVolume(folder_.path(), "alice", {}));
  EXPECT_EQ(mountedVolumeURLs(), std::vector<URL>{URL::fileURL(folder_.path(), true)});
}

TEST_F(MountedVolumesOfHost, folderOfVolumesMayBeALinkOnTheVolume) {
  folder_.folder("Data/Disks/USB");
  ASSERT_EQ(::symlink("/Data/Disks", folder_.path("volumes").c_str()), 0);
  Host::install(Host::macVolume(folder_.path(), "alice", {}));
  EXPECT_EQ(mountedVolumeURLs(), (std::vector<URL>{URL::fileURL(folder_.path(), true),
                                                   URL::fileURL(folder_.path("Data/Disks/USB"), true)}));
}

TEST_F(MountedVolumesOfHost, macVolumeListsItsRootAndTheFoldersOfVolumes) {
  folder_.folder("Volumes/USB Disk");
  folder_.folder("Volumes/Backup/inside");
  folder_.folder("Volumes/.hidden");
  folder_.file("Volumes/file");
  ASSERT_EQ(::symlink("/", folder_.path("Volumes/Macintosh HD").c_str()), 0);
  Host::install(Host::macVolume(folder_.path(), "alice", {}));
  const std::string root = "file://" + folder_.path() + "/";
  EXPECT_EQ(texts(mountedVolumeURLs()),
            (Texts{root, root + "Volumes/.hidden/", root + "Volumes/Backup/", root + "Volumes/USB%20Disk/"}));
  EXPECT_EQ(localVolumeURLs(), mountedVolumeURLs());
}

TEST_F(MountedVolumesOfHost, macVolumeWithoutVolumesIsItsRoot) {
  Host::install(Host::macVolume(folder_.path(), "alice", {}));
  EXPECT_EQ(texts(mountedVolumeURLs()), (Texts{"file://" + folder_.path() + "/"}));
}

TEST_F(MountedVolumesOfHost, desktopListsFoldersAndTheRootFirst) {
  Host::install(Host::linuxDesktop({}));
  const Texts urls = texts(mountedVolumeURLs());
  ASSERT_FALSE(urls.empty());
  EXPECT_EQ(urls.front(), "file:///");
  EXPECT_TRUE(std::ranges::all_of(urls, [](const std::string& url) { return url.ends_with('/'); }));
  EXPECT_EQ(std::ranges::count(urls, "file:///proc/"), 0);
}

TEST_F(MountedVolumesOfHost, localVolumesOfTheDesktopAreThoseOffTheNetwork) {
  Host::install(Host::linuxDesktop({}));
  Texts expected;
  for (const MountPoint& mount : mountPointsIn(test::contentOf("/proc/self/mountinfo"))) {
    const auto status = statusOf(mount.path);
    if (!mount.isNetwork && status && status->isDirectory()) expected.push_back(mount.path);
  }
  Texts found;
  for (const URL& url : localVolumeURLs()) found.push_back(url.path());
  EXPECT_EQ(found, expected);
}

}  // namespace
}  // namespace sorrel
