#include "SorrelFramework/Removal/FolderRemoval.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/LoopFileSystem.hpp"
#include "Tests/Support/ProcessState.hpp"
#include "Tests/Support/RemovalKit.hpp"
#include "Tests/Support/SilentFileSystem.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

class FolderRemovalTest : public testing::Test {
 protected:
  [[nodiscard]] FileDescriptor top() const {
    return FileDescriptor(::open(volume_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  }
  [[nodiscard]] ItemIdentity identity(std::string_view name) const {
    const auto found = identityOf(AT_FDCWD, volume_.path(name).c_str());
    EXPECT_TRUE(found.has_value()) << name;
    return found.value_or(ItemIdentity{});
  }
  [[nodiscard]] bool isThere(std::string_view name) const {
    return identityOf(AT_FDCWD, volume_.path(name).c_str()).has_value();
  }

  test::TemporaryVolume volume_;
  RemovalPolicy policy_ = RemovalPolicy::forUser();
  FolderRemoval removal_{policy_};
};

TEST_F(FolderRemovalTest, removesTheItemThatWasMeant) {
  volume_.file("folder/file", "x");
  removal_.run(top(), "folder", identity("folder"));
  EXPECT_EQ(removal_.error(), 0);
  EXPECT_EQ(removal_.removedEntries(), 2U);
  EXPECT_FALSE(isThere("folder"));
}

TEST_F(FolderRemovalTest, leavesAnItemThatTookThePlaceOfAnother) {
  volume_.file("meant", "x");
  volume_.file("file", "x");
  volume_.file("folder/file", "x");
  for (const char* name : {"file", "folder"}) {
    FolderRemoval removal(policy_);
    removal.run(top(), name, identity("meant"));
    EXPECT_EQ(removal.error(), ESTALE) << name;
    EXPECT_EQ(removal.removedEntries(), 0U);
  }
  EXPECT_TRUE(isThere("file"));
  EXPECT_TRUE(isThere("folder/file"));
}

TEST_F(FolderRemovalTest, leavesAFolderAndALinkThatTookThePlaceOfAFolder) {
  volume_.folder("meant");
  volume_.file("folder/file", "x");
  volume_.link("link", "folder");
  volume_.link("linkToMeant", "meant");
  for (const char* name : {"folder", "link", "linkToMeant"}) {
    removal_.run(top(), name, identity("meant"));
    EXPECT_EQ(removal_.error(), ESTALE) << name;
    EXPECT_EQ(removal_.removedEntries(), 0U);
    EXPECT_TRUE(isThere(name));
  }
  EXPECT_TRUE(isThere("folder/file"));
}

TEST_F(FolderRemovalTest, leavesWhatWasMountedOnTheItemMeanwhile) {
  volume_.folder("folder");
  volume_.file("precious/file", "x");
  const std::string told = test::inMountingChild([&]() -> std::string {
    const ItemIdentity meant = identity("folder");
    if (::mount(volume_.path("precious").c_str(), volume_.path("folder").c_str(), nullptr, MS_BIND,
                nullptr) != 0) {
      return "skip";
    }
    removal_.run(top(), "folder", meant);
    return std::to_string(removal_.error());
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, std::to_string(ESTALE));
  EXPECT_TRUE(isThere("precious/file"));
}

TEST_F(FolderRemovalTest, leavesWhatIsNoFolderInThePlaceOfAFolderAndTheReverse) {
  volume_.folder("meant");
  volume_.file("file", "x");
  volume_.fifo("pipe");
  volume_.file("full/file", "x");
  for (const char* name : {"file", "pipe"}) {
    removal_.run(top(), name, identity("meant"));
    EXPECT_EQ(removal_.error(), ESTALE) << name;
    EXPECT_TRUE(isThere(name));
  }
  removal_.run(top(), "full", identity("file"));
  EXPECT_EQ(removal_.error(), ESTALE);
  EXPECT_TRUE(isThere("full/file"));
}

/// The device, the inode and the type are those of the item.
TEST_F(FolderRemovalTest, leavesTheItemItselfIfItWasMountedOnItself) {
  volume_.file("folder/file", "x");
  for (const int missing : {0, ENOSYS, EPERM}) {
    const std::string told = test::inMountingChild([&]() -> std::string {
      const ItemIdentity meant = identity("folder");
      const std::string folder = volume_.path("folder");
      if (::mount(folder.c_str(), folder.c_str(), nullptr, MS_BIND, nullptr) != 0) return "skip";
      if (missing != 0 && !test::takeAwayOpenat2(missing)) return "no filter";
      removal_.run(top(), "folder", meant);
      return std::to_string(removal_.error());
    });
    if (told == "skip") GTEST_SKIP() << "no right to mount";
    EXPECT_EQ(told, std::to_string(ESTALE)) << missing;
    EXPECT_TRUE(isThere("folder/file"));
  }
}

TEST_F(FolderRemovalTest, aFileSystemMountedOnTheItemMeanwhileThatNeverAnswersIsNotAsked) {
  volume_.folder("folder");
  const std::string told = test::inMountingChild([&]() -> std::string {
    const ItemIdentity meant = identity("folder");
    const FileDescriptor server = test::mountSilentFileSystem(volume_.path("folder"));
    if (!server.isOpen()) return "skip";
    removal_.run(top(), "folder", meant);
    return std::to_string(removal_.error());
  });
  if (told == "skip") GTEST_SKIP() << "no file system can be mounted here";
  EXPECT_EQ(told, std::to_string(ESTALE));
}

TEST_F(FolderRemovalTest, leavesAFolderThatCannotBeReadInThePlaceOfTheItem) {
  volume_.folder("meant");
  volume_.folder("closed");
  for (const char* name : {"", "closed"}) {
    if (::geteuid() == 0) volume_.setOwner(name, test::kPlainUser);
  }
  volume_.setMode("closed", 0);
  const std::string told = test::inPlainChild([&] {
    removal_.run(top(), "closed", identity("meant"));
    return std::to_string(removal_.error());
  });
  EXPECT_EQ(told, std::to_string(ESTALE));
  EXPECT_TRUE(isThere("closed"));
}

TEST_F(FolderRemovalTest, anItemInAFolderThatWasMovedGoesFromThere) {
  volume_.file("work/item/file", "x");
  volume_.file("work/other", "x");
  const ItemIdentity item = identity("work/item");
  FileDescriptor parent(::open(volume_.path("work").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(::rename(volume_.path("work").c_str(), volume_.path("moved").c_str()), 0);
  volume_.file("work/item/file", "precious");
  removal_.run(std::move(parent), "item", item);
  EXPECT_EQ(removal_.error(), 0);
  EXPECT_FALSE(isThere("moved/item"));
  EXPECT_TRUE(isThere("moved/other"));
  EXPECT_TRUE(isThere("work/item/file"));
}

TEST_F(FolderRemovalTest, itemThatCannotBeReadGoesIfItIsEmpty) {
  volume_.folder("empty");
  volume_.file("full/file", "x");
  for (const char* name : {"", "empty", "full"}) {
    if (::geteuid() == 0) volume_.setOwner(name, test::kPlainUser);
  }
  for (const char* name : {"empty", "full"}) volume_.setMode(name, 0);
  const std::string told = test::inPlainChild([&] {
    std::string errors;
    for (const char* name : {"empty", "full"}) {
      removal_.run(top(), name, identity(name));
      errors += std::to_string(removal_.error()) + " ";
    }
    return errors;
  });
  EXPECT_EQ(told, "0 " + std::to_string(EACCES) + " ");
  volume_.setMode("full", 0700);
  EXPECT_FALSE(isThere("empty"));
  EXPECT_TRUE(isThere("full/file"));
}

TEST_F(FolderRemovalTest, leavesTheSameItemBehindAnotherMount) {
  volume_.file("folder/file", "x");
  ItemIdentity item = identity("folder");
  ++item.mount;
  removal_.run(top(), "folder", item);
  EXPECT_EQ(removal_.error(), ESTALE);
  EXPECT_TRUE(isThere("folder/file"));
}

TEST_F(FolderRemovalTest, itemThatIsGoneIsAFailure) {
  volume_.file("file", "x");
  const ItemIdentity item = identity("file");
  ASSERT_EQ(::unlink(volume_.path("file").c_str()), 0);
  removal_.run(top(), "file", item);
  EXPECT_EQ(removal_.error(), ENOENT);
  EXPECT_FALSE(removal_.isRefused());
}

using test::isThere;
using test::textOf;

class WholeTreeRemoval : public test::RemovalStage {};

// Mounts.

TEST_F(WholeTreeRemoval, bind_mount_inside_target_survives) {
  volume_.file("outside/file", "precious");
  volume_.file("outside/single", "precious");
  volume_.file("top/other/file", "x");
  const std::string folder = volume_.folder("top/a/bind");
  const std::string file = volume_.file("top/single", "");
  const auto before = test::snapshotOf(volume_.path("outside"));
  const std::string told = test::inMountingChild([&]() -> std::string {
    if (::mount(volume_.path("outside").c_str(), folder.c_str(), nullptr, MS_BIND, nullptr) != 0 ||
        ::mount(volume_.path("outside/single").c_str(), file.c_str(), nullptr, MS_BIND, nullptr) != 0) {
      return "skip";
    }
    return textOf(remove("top"));
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, std::to_string(EBUSY));
  EXPECT_EQ(test::snapshotOf(volume_.path("outside")), before);
  EXPECT_FALSE(isThere(volume_.path("top/other")));
  EXPECT_TRUE(isThere(folder));
}

TEST_F(WholeTreeRemoval, otherFileSystemInsideTargetSurvives) {
  const std::string point = volume_.folder("top/mount");
  const std::string told = test::inMountingChild([&]() -> std::string {
    if (::mount("tmpfs", point.c_str(), "tmpfs", 0, nullptr) != 0) return "skip";
    volume_.file("top/mount/file", "x");
    return textOf(remove("top")) + (isThere(point + "/file") ? " kept" : " lost");
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, std::to_string(EBUSY) + " kept");
}

TEST_F(WholeTreeRemoval, btrfs_subvolume_inside_survives) {
  const std::string told = test::inMountingChild([&]() -> std::string {
    const test::LoopFileSystem btrfs("btrfs", volume_.path("image"), volume_.path("mount"));
    const std::string command =
        "btrfs subvolume create " + volume_.folder("mount/top/a") + "/sub >/dev/null 2>&1";
    if (!btrfs.isMounted() || std::system(command.c_str()) != 0) return "skip";
    volume_.file("mount/top/a/sub/file", "x");
    volume_.file("mount/top/other/file", "x");
    std::string result = textOf(remove("mount/top"));
    for (const char* name : {"mount/top/a/sub/file", "mount/top/other"})
      result += isThere(volume_.path(name)) ? " kept" : " gone";
    return result;
  });
  if (told == "skip") GTEST_SKIP() << "no btrfs, no loop device or no right to mount";
  EXPECT_EQ(told, std::to_string(EXDEV) + " kept gone");
}

TEST_F(WholeTreeRemoval, mountPointItselfIsRefusedAndWhatLiesInItGoes) {
  const std::string point = volume_.folder("mount");
  const std::string told = test::inMountingChild([&]() -> std::string {
    if (::mount("tmpfs", point.c_str(), "tmpfs", 0, nullptr) != 0) return "skip";
    volume_.file("mount/.Trash-1000/files/old", "x");
    return textOf(remove("mount")) + ", " + textOf(remove("mount/.Trash-1000")) + ", " +
           textOf(remove("mount/.Trash-1000/files"));
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, std::to_string(EBUSY) + " refused, " + std::to_string(EPERM) + " refused, 0");
}

TEST_F(WholeTreeRemoval, readOnlyFileSystemIsAnOrdinaryFailure) {
  volume_.file("top/file", "x");
  const std::string told = test::inMountingChild([&]() -> std::string {
    const char* const top = volume_.path().c_str();
    if (::mount(top, top, nullptr, MS_BIND, nullptr) != 0 ||
        ::mount(nullptr, top, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0) {
      return "skip";
    }
    return textOf(remove("top/file")) + ", " + textOf(remove("top"));
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, std::to_string(EROFS) + ", " + std::to_string(EROFS));
  EXPECT_TRUE(isThere(volume_.path("top/file")));
}

// Failures.

TEST_F(WholeTreeRemoval, folder_unreadable_midway_not_empty) {
  volume_.file("top/a/file", "x");
  volume_.file("top/closed/file", "x");
  volume_.folder("top/closedAndEmpty");
  volume_.file("top/z/file", "x");
  for (const char* name : {"", "top", "top/a", "top/closed", "top/closedAndEmpty", "top/z"}) {
    if (::geteuid() == 0) volume_.setOwner(name, test::kPlainUser);
  }
  volume_.setMode("top/closed", 0);
  volume_.setMode("top/closedAndEmpty", 0);
  const std::string told =
      test::inPlainChild([&] { return textOf(removeItem(volume_.path("top"), RemovalPolicy::forUser())); });
  EXPECT_EQ(told, std::to_string(EACCES));
  volume_.setMode("top/closed", 0700);
  EXPECT_EQ(test::contentOf(volume_.path("top/closed/file")), "x");
  EXPECT_FALSE(isThere(volume_.path("top/a")));
  EXPECT_FALSE(isThere(volume_.path("top/z")));
  EXPECT_FALSE(isThere(volume_.path("top/closedAndEmpty")));
}

TEST_F(WholeTreeRemoval, oneForbiddenEntryKeepsTheRestGoingAndNoModeChanges) {
  volume_.file("top/a", "x");
  volume_.file("top/locked/file", "x");
  volume_.file("top/deep/locked/file", "x");
  volume_.file("top/deep/other", "x");
  for (const char* name : {"", "top", "top/locked", "top/deep", "top/deep/locked"}) {
    if (::geteuid() == 0) volume_.setOwner(name, test::kPlainUser);
  }
  volume_.setMode("top/locked", 0500);
  volume_.setMode("top/deep/locked", 0500);
  const std::string told =
      test::inPlainChild([&] { return textOf(removeItem(volume_.path("top"), RemovalPolicy::forUser())); });
  EXPECT_EQ(told, std::to_string(EACCES));
  EXPECT_TRUE(isThere(volume_.path("top/locked/file")));
  EXPECT_TRUE(isThere(volume_.path("top/deep/locked/file")));
  EXPECT_FALSE(isThere(volume_.path("top/a")));
  EXPECT_FALSE(isThere(volume_.path("top/deep/other")));
  EXPECT_EQ(statusOf(volume_.path("top/locked"))->mode & 07777U, 0500U);
}

TEST_F(WholeTreeRemoval, foreignEntryOfAStickyFolderStays) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "only root can give files away";
  volume_.file("sticky/foreign", "x");
  volume_.file("sticky/mine", "x");
  volume_.setOwner("sticky/foreign", test::kPlainUser + 1);
  volume_.setOwner("sticky/mine", test::kPlainUser);
  volume_.setMode("sticky", 01777);
  volume_.setMode("", 0755);
  const std::string told = test::inPlainChild([&] {
    const RemovalPolicy policy = RemovalPolicy::forUser();
    return textOf(removeItem(volume_.path("sticky/foreign"), policy)) + ", " +
           textOf(removeItem(volume_.path("sticky/mine"), policy));
  });
  EXPECT_EQ(told, std::to_string(EPERM) + ", 0");
  EXPECT_TRUE(isThere(volume_.path("sticky/foreign")));
}

// Size.

TEST_F(WholeTreeRemoval, depth_20000_with_256_fds) {
  const std::string told = test::inMemoryChild([&]() -> std::string {
    const test::TemporaryVolume volume;
    volume.chain("top", "d", 20'000);
    volume.file("top/file", "x");
    const rlimit limit{256, 256};
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) return "no limit";
    const RemovalResult result = removeItem(volume.path("top"), policy_);
    return textOf(result) + " " + std::to_string(result.removedEntries) +
           (isThere(volume.path("top")) ? " there" : " gone");
  });
  EXPECT_EQ(told, "0 20002 gone");
}

TEST_F(WholeTreeRemoval, opensNoMoreThanSixtyFourFiles) {
  volume_.chain("top", "d", 300);
  const std::string told = test::inChild([&]() -> std::string {
    const rlim_t most = test::openDescriptors() + 64;
    const rlimit limit{most, most};
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) return "no limit";
    return textOf(remove("top"));
  });
  EXPECT_EQ(told, "0");
}

TEST_F(WholeTreeRemoval, itemOfAPathLongerThanTheSystemTakesGoes) {
  const std::string deep = volume_.chain("top", std::string(200, 'd'), 40);
  const RemovalResult result = removeItem(deep, policy_);
  EXPECT_EQ(textOf(result), "0");
  EXPECT_EQ(result.removedEntries, 1U);
  EXPECT_EQ(textOf(removeItem(deep, policy_)), std::to_string(ENOENT) + " absent");
}

TEST_F(WholeTreeRemoval, oneFolderOf200000EntriesNeedsLittleMemory) {
  const auto grown = [] {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
  };
  const std::string told = test::inMemoryChild([&]() -> std::string {
    const test::TemporaryVolume volume;
    const std::string top = volume.folder("top");
    const FileDescriptor folder(::open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int i = 0; i < 200'000; ++i) ::mknodat(folder.get(), std::to_string(i).c_str(), S_IFREG | 0600, 0);
    const long before = grown();
    const RemovalResult result = removeItem(top, policy_);
    return textOf(result) + " " + std::to_string(result.removedEntries) +
           (grown() - before < 8 * 1024 ? " small" : " large");
  });
  EXPECT_EQ(told, "0 200001 small");
}

TEST_F(WholeTreeRemoval, leavesNoDescriptorOpen) {
  volume_.chain("first", "d", 1);
  volume_.chain("top", "d", 100);
  EXPECT_TRUE(remove("first").isSuccess()) << "the policy opens the mount table once";
  const std::size_t before = test::openDescriptors();
  EXPECT_TRUE(remove("top").isSuccess());
  EXPECT_EQ(textOf(remove("none/x")), std::to_string(ENOENT) + " absent");
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(WholeTreeRemoval, aFileSystemBelowTheItemThatNeverAnswersIsNotAsked) {
  volume_.file("top/file", "x");
  const std::string told = test::inMountingChild([&]() -> std::string {
    const FileDescriptor server = test::mountSilentFileSystem(volume_.folder("top/silent"));
    if (!server.isOpen()) return "skip";
    return textOf(remove("top"));
  });
  if (told == "skip") GTEST_SKIP() << "no file system can be mounted here";
  EXPECT_EQ(told, std::to_string(EBUSY));
  EXPECT_FALSE(isThere(volume_.path("top/file")));
}

}  // namespace
}  // namespace sorrel
