#include "SorrelFramework/Platform/Files/MountTable.hpp"

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <string>
#include <utility>
#include <vector>

#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel {
namespace {

TEST(MountTable, readsTheLinesOfATable) {
  const std::vector<Mount> expected = {{36, "98:0", "/mnt1", "/mnt2", "ext3"},
                                       {37, "0:30", "/", "/with blank\\", "tmpfs"},
                                       {38, "0:31", "/in\tner", "/three", "fuse.sshfs"},
                                       {42, "0:4", "mnt:[4026531840]", "/run/ns", "nsfs"},
                                       {41, "0:32", "/", "/last", "xfs"}};
  EXPECT_EQ(mountsIn("36 35 98:0 /mnt1 /mnt2 rw,noatime master:1 - ext3 /dev/root rw,errors=continue\n"
                     "37 35 0:30 / /with\\040blank\\134 rw - tmpfs tmpfs rw\n"
                     "38 35 0:31 /in\\011ner /three rw shared:1 master:2 propagate_from:3 - fuse.sshfs "
                     "me@host:/-\\040x rw\n"
                     "42 35 0:4 mnt:[4026531840] /run/ns rw - nsfs nsfs rw\n"
                     "not a line\n"
                     "39 35 0:31 / /short rw\n"
                     "40 35 0:31 / /no-type rw - \n"
                     "43 35 0:31 / no-path rw - ext4 x rw\n"
                     "\n"
                     "-1 35 0:31 / /negative rw - ext4 x rw\n"
                     "1x 35 0:31 / /no-number rw - ext4 x rw\n"
                     "41 35 0:32 / /last rw - xfs /dev/x rw"),
            expected);
  EXPECT_TRUE(mountsIn("").empty());
}

TEST(MountTable, aBackslashThatIsNoEscapeStays) {
  EXPECT_EQ(mountsIn("1 0 0:1 / /a\\9\\08x\\12 rw - ext4 x rw").at(0).point, "/a\\9\\08x\\12");
}

TEST(MountTable, namesTheLayersOfAnOverlay) {
  const auto layersOf = [](const std::string& type, const std::string& options) {
    return mountsIn("1 0 0:1 / /a rw - " + type + " x " + options).at(0).layers;
  };
  using Texts = std::vector<std::string>;
  EXPECT_EQ(layersOf("overlay", "rw,lowerdir=/l/1:/l/2,upperdir=/u,workdir=/w,xino=off"),
            (Texts{"/l/1", "/l/2", "/u", "/w"}));
  EXPECT_EQ(layersOf("overlay", "ro,lowerdir=/with\\040blank,lowerdir=/a\\054b\\134:c::/data"),
            (Texts{"/with blank", "/a,b:c", "/data"}));
  EXPECT_EQ(layersOf("overlay", "rw,lowerdir+=/a:b,lowerdir+=/c,datadir+=/d"), (Texts{"/a:b", "/c", "/d"}));
  EXPECT_EQ(layersOf("overlay", "rw,upperdir=/a\\134:b"), (Texts{"/a\\:b", "/a:b"})) << "either may be meant";
  EXPECT_EQ(layersOf("overlay", "rw,lowerdir,upperdir="), Texts{""});
  EXPECT_EQ(layersOf("ext4", "rw,lowerdir=/l"), Texts{});
}

TEST(MountTable, knowsTypesThatAServerAnswersFor) {
  for (const char* type : {"fuse", "fuseblk", "fuse.sshfs", "nfs", "nfs4", "cifs", "9p", "autofs"}) {
    EXPECT_TRUE(isServedType(type)) << type;
  }
  for (const char* type : {"ext4", "btrfs", "tmpfs", "overlay", "proc", ""}) {
    EXPECT_FALSE(isServedType(type)) << type;
  }
}

/// A table that the test changes.
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

TEST(MountTable, isReadAgainOnlyWhenItHasChanged) {
  Script script{"7 1 0:1 / /a rw - ext4 x rw\n"};
  MountTable table(std::make_unique<ScriptedSource>(script));
  EXPECT_EQ(table.find(7), nullptr) << "not read yet";
  EXPECT_TRUE(table.refresh());
  EXPECT_FALSE(table.refresh());
  ASSERT_NE(table.find(7), nullptr);
  EXPECT_EQ(table.find(7)->point, "/a");
  EXPECT_EQ(table.find(8), nullptr);
  script = {"8 1 0:1 / /b rw - ext4 x rw\n", true, 1};
  EXPECT_TRUE(table.refresh());
  EXPECT_EQ(table.find(7), nullptr);
  EXPECT_NE(table.find(8), nullptr);
  EXPECT_EQ(script.readings, 2);
}

TEST(MountTable, showsTheMountsOfThisProcessAsTheyCome) {
  const test::TemporaryFolder folder;
  const std::string told = test::inMountingChild([&]() -> std::string {
    MountTable table;
    const auto isListed = [&] {
      table.refresh();
      for (const Mount& mount : table.mounts()) {
        if (mount.point == folder.path())
          return mount.root == "/" && mount.type == "tmpfs" ? "as it is" : "other";
      }
      return "no";
    };
    const std::string before = isListed();
    if (::mount("tmpfs", folder.path().c_str(), "tmpfs", 0, nullptr) != 0) return "skip";
    const std::string during = isListed();
    ::umount(folder.path().c_str());
    return before + ", " + during + ", " + isListed();
  });
  if (told == "skip") GTEST_SKIP() << "nothing can be mounted here";
  EXPECT_EQ(told, "no, as it is, no");
}

}  // namespace
}  // namespace sorrel
