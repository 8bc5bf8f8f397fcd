#include "Helper/FileSystemFence.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "SorrelFramework/Removal/ItemIdentity.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::helper {
namespace {

std::string lineOf(std::uint64_t mount, const std::string& type) {
  return std::to_string(mount) + " 1 0:1 / /point rw shared:1 - " + type + " source rw\n";
}

/// A mount table that the test changes.
struct Script {
  std::string text;
  bool hasChanged = false;
  int readings = 0;
};
class ScriptedSource : public MountSource {
 public:
  explicit ScriptedSource(Script& script) : script_(script) {}
  bool hasChanged() override { return std::exchange(script_.hasChanged, false); }
  std::string read() override {
    ++script_.readings;
    return script_.text;
  }

 private:
  Script& script_;
};

FileSystemFence fenceOf(Script& script, std::vector<std::string> allowed = {}) {
  return FileSystemFence(std::move(allowed), std::make_unique<ScriptedSource>(script));
}

TEST(FileSystemFence, localTypesMayBeEntered) {
  for (const char* type :
       {"ext2",    "ext3", "ext4",  "xfs",      "btrfs", "f2fs",    "zfs",   "bcachefs", "jfs",
        "nilfs2",  "ntfs", "ntfs3", "reiserfs", "vfat",  "msdos",   "exfat", "hfs",      "hfsplus",
        "iso9660", "udf",  "erofs", "squashfs", "tmpfs", "overlay", "apfs",  "ecryptfs", "minix"}) {
    Script script{lineOf(7, type)};
    EXPECT_TRUE(fenceOf(script).mayEnter(7)) << type;
  }
}

TEST(FileSystemFence, typesOfUserProgramsTheNetworkAndTheKernelMayNot) {
  for (const char* type :
       {"fuse",    "fuseblk", "fuse.sshfs", "fuse.portal", "virtiofs", "nfs",    "nfs4", "cifs",  "smb3",
        "9p",      "afs",     "ceph",       "coda",        "lustre",   "autofs", "proc", "sysfs", "devtmpfs",
        "cgroup2", "",        "unheard-of", "ext",         "ext44"}) {
    Script script{lineOf(7, type)};
    EXPECT_FALSE(fenceOf(script).mayEnter(7)) << type;
  }
}

TEST(FileSystemFence, theAdministratorAddsTypesOneByOne) {
  Script script{lineOf(7, "fuse.sshfs") + lineOf(8, "fuse") + lineOf(9, "nfs4")};
  FileSystemFence fence = fenceOf(script, {"fuse.sshfs", "nfs4"});
  EXPECT_TRUE(fence.mayEnter(7));
  EXPECT_FALSE(fence.mayEnter(8));
  EXPECT_TRUE(fence.mayEnter(9));
}

TEST(FileSystemFence, aMountThatTheTableDoesNotKnowMayNot) {
  Script script{lineOf(7, "ext4")};
  FileSystemFence fence = fenceOf(script);
  EXPECT_FALSE(fence.mayEnter(8));
  EXPECT_FALSE(fence.mayEnter(0));
}

TEST(FileSystemFence, theTableIsReadAgainOnlyWhenItHasChanged) {
  Script script{lineOf(7, "ext4")};
  FileSystemFence fence = fenceOf(script);
  EXPECT_TRUE(fence.mayEnter(7));
  EXPECT_TRUE(fence.mayEnter(7));
  EXPECT_EQ(script.readings, 1);
  // The ID of a mount that is gone now belongs to another one.
  script = {lineOf(7, "fuse") + lineOf(8, "ext4"), true, 1};
  EXPECT_FALSE(fence.mayEnter(7));
  EXPECT_TRUE(fence.mayEnter(8));
  EXPECT_EQ(script.readings, 2);
}

std::uint64_t mountAt(const std::string& path) {
  const FileDescriptor point(::open(path.c_str(), O_PATH | O_CLOEXEC));
  return mountOf(point.get()).value_or(0);
}

TEST(FileSystemFence, aMountOfThisMachineIsSeenWhenItAppears) {
  const test::TemporaryFolder folder;
  const std::string told = test::inMountingChild([&]() -> std::string {
    FileSystemFence fence({});
    if (fence.mayEnter(mountAt("/proc"))) return "/proc may be entered";
    if (::mount("tmpfs", folder.path().c_str(), "tmpfs", 0, nullptr) != 0) return "skip";
    return fence.mayEnter(mountAt(folder.path())) ? "seen" : "not seen";
  });
  if (told == "skip") GTEST_SKIP() << "nothing can be mounted here";
  EXPECT_EQ(told, "seen");
}

}  // namespace
}  // namespace sorrel::helper
