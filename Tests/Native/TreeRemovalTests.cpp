#include "SorrelFramework/Native/TreeRemoval.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/fsuid.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "SorrelFramework/Native/FolderRemoval.hpp"
#include "SorrelFramework/Platform/FileStatus.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/LoopFileSystem.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/NumberFrom.hpp"
#include "Tests/Support/ProcessState.hpp"
#include "Tests/Support/ScopedVariable.hpp"
#include "Tests/Support/SilentFileSystem.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

namespace fs = std::filesystem;

bool isThere(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

std::string textOf(const RemovalResult& result) {
  return std::to_string(result.error) + (result.isRefused ? " refused" : "") +
         (result.isAbsent ? " absent" : "");
}

ItemNumber numberOf(const std::string& path) {
  const auto identity = identityOf(AT_FDCWD, path.c_str());
  EXPECT_TRUE(identity.has_value()) << path;
  return identity.value_or(ItemIdentity{}).number;
}

/// Ends this process at the first attempt to remove or rename anything, wherever it lies.
bool raiseFence() {
  std::vector<sock_filter> filter = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  const std::vector<unsigned> forbidden = {
      SYS_unlinkat, SYS_renameat2,
#ifdef SYS_unlink
      SYS_unlink,   SYS_rmdir,     SYS_rename, SYS_renameat,
#endif
  };
  for (const unsigned call : forbidden) {
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS));
  }
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

/// Lets the system answer openat2(2) with `error` in this process, as old kernels and some sandboxes do.
bool takeAwayOpenat2(int error) {
  std::vector<sock_filter> filter = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(error)),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

class TreeRemovalTest : public testing::Test {
 protected:
  [[nodiscard]] RemovalResult remove(std::string_view name) const {
    return removeItem(volume_.path(name), policy_);
  }
  /// Tells of a removal in a child behind the fence, with a mount table of its own.
  [[nodiscard]] std::string behindFence(const std::string& path) const {
    return test::inChild([&] { return raiseFence() ? textOf(removeItem(path, policy_)) : "no fence"; });
  }

  test::TemporaryVolume volume_;
  RemovalPolicy policy_ = RemovalPolicy::forUser();
};

// What goes, and what stays.

TEST_F(TreeRemovalTest, removesAFileAndNothingElse) {
  volume_.file("top/a", "x");
  volume_.file("top/b", "x");
  const RemovalResult result = remove("top/a");
  EXPECT_TRUE(result.isSuccess());
  EXPECT_EQ(result.removedEntries, 1U);
  EXPECT_FALSE(isThere(volume_.path("top/a")));
  EXPECT_TRUE(isThere(volume_.path("top/b")));
}

TEST_F(TreeRemovalTest, removesAFolderWithAllThatLiesInIt) {
  for (int i = 0; i < 2000; ++i) volume_.file("top/many/" + std::to_string(i), "");
  for (int i = 0; i < 20; ++i) volume_.file("top/" + std::to_string(i) + "/below/file", "x");
  volume_.file("beside", "x");
  const RemovalResult result = remove("top");
  EXPECT_TRUE(result.isSuccess());
  EXPECT_EQ(result.removedEntries, 2000U + 1 + 20 * 3 + 1);
  EXPECT_FALSE(isThere(volume_.path("top")));
  EXPECT_TRUE(isThere(volume_.path("beside")));
}

TEST_F(TreeRemovalTest, removesALinkAndNotWhereItLeads) {
  volume_.file("target/file", "x");
  volume_.link("link", "target");
  volume_.link("broken", "none");
  EXPECT_TRUE(remove("link").isSuccess());
  EXPECT_TRUE(remove("broken").isSuccess());
  EXPECT_FALSE(isThere(volume_.path("link")));
  EXPECT_TRUE(isThere(volume_.path("target/file")));
}

TEST_F(TreeRemovalTest, trash_with_links_removes_links_only) {
  volume_.file("outside/folder/file", "precious");
  volume_.file("trash/old", "x");
  volume_.link("trash/toFolder", "../outside/folder");
  volume_.link("trash/toFile", volume_.path("outside/folder/file"));
  volume_.link("trash/toTop", "/");
  volume_.link("trash/up", "..");
  const auto before = test::snapshotOf(volume_.path("outside"));
  EXPECT_TRUE(remove("trash").isSuccess());
  EXPECT_FALSE(isThere(volume_.path("trash")));
  EXPECT_EQ(test::snapshotOf(volume_.path("outside")), before);
}

TEST_F(TreeRemovalTest, hardLinkKeepsItsOtherName) {
  volume_.file("keep/file", "precious");
  volume_.folder("top");
  ASSERT_EQ(::link(volume_.path("keep/file").c_str(), volume_.path("top/name").c_str()), 0);
  const auto before = test::snapshotOf(volume_.path("keep"));
  EXPECT_TRUE(remove("top").isSuccess());
  EXPECT_EQ(test::snapshotOf(volume_.path("keep")), before);
}

TEST_F(TreeRemovalTest, namesAreBytes) {
  const std::vector<std::string> names = {
      "-rf",      "*",   "%20",       "a\nb",         "\xFF\xFE",
      " ",        "..x", "...",       "$(x)",         "'\"\\",
      "\x01\x7F", "é",   "e\xCC\x81", "\xE2\x80\xAE", std::string(255, 'n'),
      "~"};
  for (const std::string& name : names) {
    volume_.file("top/" + name + "/" + name, "x");
    volume_.file("one/" + name, "x");
  }
  for (const std::string& name : names) {
    EXPECT_TRUE(remove("one/" + name).isSuccess()) << name;
    EXPECT_FALSE(isThere(volume_.path("one/" + name))) << name;
  }
  EXPECT_TRUE(remove("top").isSuccess());
  EXPECT_FALSE(isThere(volume_.path("top")));
}

TEST_F(TreeRemovalTest, twinNamesAreTwoItems) {
  volume_.file("\xC3\xA9", "composed");
  volume_.file("e\xCC\x81", "decomposed");
  volume_.file("A", "");
  volume_.file("a", "");
  EXPECT_TRUE(remove("\xC3\xA9").isSuccess());
  EXPECT_TRUE(remove("a").isSuccess());
  EXPECT_TRUE(isThere(volume_.path("e\xCC\x81")));
  EXPECT_TRUE(isThere(volume_.path("A")));
}

TEST_F(TreeRemovalTest, fifo_in_tree_no_hang) {
  volume_.fifo("top/pipe");
  volume_.fifo("pipe");
  EXPECT_TRUE(remove("top").isSuccess());
  EXPECT_TRUE(remove("pipe").isSuccess());
  EXPECT_FALSE(isThere(volume_.path("top")));
}

TEST_F(TreeRemovalTest, worksWhereTheSystemDoesNotHaveOpenat2) {
  volume_.file("outside/file", "precious");
  const std::string home = volume_.folder("home");
  const test::ScopedVariable variable("HOME", home.c_str());
  for (const int error : {ENOSYS, EPERM}) {
    volume_.file("item/folder/file", "x");
    volume_.link("item/link", "../outside");
    EXPECT_EQ(test::inChild([&]() -> std::string {
                if (!takeAwayOpenat2(error)) return "no filter";
                return textOf(removeItem(volume_.path("item"), RemovalPolicy::forUser())) + ", " +
                       textOf(removeItem(home, RemovalPolicy::forUser()));
              }),
              "0, " + std::to_string(EPERM) + " refused");
    EXPECT_FALSE(isThere(volume_.path("item")));
    EXPECT_TRUE(isThere(volume_.path("outside/file")));
  }
}

TEST_F(TreeRemovalTest, missingItemIsAFailure) {
  volume_.file("file", "x");
  EXPECT_EQ(textOf(remove("none")), std::to_string(ENOENT) + " absent");
  EXPECT_EQ(textOf(remove("none/below")), std::to_string(ENOENT) + " absent");
  EXPECT_EQ(textOf(remove("file/below")), std::to_string(ENOTDIR));
  EXPECT_EQ(textOf(remove(std::string(256, 'n'))), std::to_string(ENAMETOOLONG));
  EXPECT_TRUE(remove("file").isSuccess());
  EXPECT_EQ(textOf(remove("file")), std::to_string(ENOENT) + " absent");
}

TEST_F(TreeRemovalTest, itemBehindATrustedLinkAboveItGoes) {
  volume_.file("real/file", "x");
  volume_.link("link", "real");
  EXPECT_TRUE(remove("link/file").isSuccess());
  EXPECT_FALSE(isThere(volume_.path("real/file")));
}

TEST_F(TreeRemovalTest, onlyTheExpectedItemGoes) {
  const std::string file = volume_.file("file", "x");
  volume_.file("other", "x");
  EXPECT_EQ(textOf(removeExpectedItem(file, numberOf(volume_.path("other")), policy_)),
            std::to_string(ESTALE) + " refused");
  EXPECT_TRUE(isThere(file));
  EXPECT_TRUE(removeExpectedItem(file, numberOf(file), policy_).isSuccess());
  EXPECT_FALSE(isThere(file));
}

// The policy.

TEST_F(TreeRemovalTest, fenceEndsAProcessThatRemoves) {
  const std::string file = volume_.file("file", "x");
  EXPECT_EQ(behindFence(file), "ended by signal " + std::to_string(SIGSYS));
  EXPECT_TRUE(isThere(file));
  EXPECT_EQ(behindFence(volume_.folder("folder")), "ended by signal " + std::to_string(SIGSYS));
}

TEST_F(TreeRemovalTest, refuses_root_by_every_alias) {
  volume_.link("link", "/");
  const std::string bind = volume_.folder("bind");
  const std::string work = volume_.folder("work/current");
  const std::string told = test::inMountingChild([&]() -> std::string {
    const bool isBound = ::mount("/", bind.c_str(), nullptr, MS_BIND, nullptr) == 0;
    if (::chdir(work.c_str()) != 0) return "no current folder";
    const RemovalPolicy policy = RemovalPolicy::forUser();
    if (!raiseFence()) return "no fence";
    std::vector<std::string> aliases = {"",
                                        "/",
                                        "//",
                                        "/.",
                                        "/..",
                                        "/../",
                                        "///",
                                        "/./",
                                        ".",
                                        "..",
                                        "./",
                                        "../",
                                        "tmp",
                                        "/tmp/..",
                                        work + "/.",
                                        work + "/..",
                                        work,
                                        volume_.path("work"),
                                        volume_.path("link") + "/",
                                        volume_.path("link") + work,
                                        bind + work};
    if (isBound) aliases.push_back(bind);
    std::string wrong;
    for (const std::string& alias : aliases) {
      if (!removeItem(alias, policy).isRefused) wrong += alias + '\n';
    }
    return wrong + (isBound ? "" : "unbound");
  });
  if (told == "skip" || told == "unbound") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, "");
}

TEST_F(TreeRemovalTest, refusesAHomeAndItsParentsAndTakesWhatLiesInIt) {
  volume_.file("homes/carol/cache/file", "x");
  volume_.link("alias", "homes");
  policy_.protectSelfAndAncestors(volume_.path("homes/carol"));
  const std::string refused = std::to_string(EPERM) + " refused";
  EXPECT_EQ(behindFence(volume_.path("homes/carol")), refused);
  EXPECT_EQ(behindFence(volume_.path("homes")), refused);
  EXPECT_EQ(behindFence(volume_.path()), refused);
  EXPECT_EQ(behindFence(volume_.path("alias/carol")), refused);
  EXPECT_TRUE(remove("homes/carol/cache").isSuccess());
  EXPECT_FALSE(isThere(volume_.path("homes/carol/cache")));
}

TEST_F(TreeRemovalTest, refusesAHomeBehindABindMount) {
  volume_.file("homes/carol/file", "x");
  const std::string bind = volume_.folder("bind");
  policy_.protectSelfAndAncestors(volume_.path("homes/carol"));
  const std::string told = test::inMountingChild([&]() -> std::string {
    if (::mount(volume_.path("homes").c_str(), bind.c_str(), nullptr, MS_BIND, nullptr) != 0) return "skip";
    return raiseFence() ? textOf(removeItem(bind + "/carol", policy_)) : "no fence";
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, std::to_string(EPERM) + " refused");
}

TEST_F(TreeRemovalTest, refusesEverythingInAProtectedSubtreeButTheException) {
  volume_.file("system/bin/program", "x");
  volume_.file("system/local/own/file", "x");
  volume_.link("alias", "system/bin");
  policy_.protectSubtree(volume_.path("system"));
  policy_.allowSubtree(volume_.path("system/local"));
  const std::string refused = std::to_string(EPERM) + " refused";
  for (const char* name :
       {"system", "system/bin", "system/bin/program", "system/bin/none", "alias/program", "system/local"}) {
    EXPECT_EQ(behindFence(volume_.path(name)), refused) << name;
  }
  EXPECT_TRUE(remove("system/local/own").isSuccess());
  EXPECT_TRUE(remove("alias").isSuccess());
  EXPECT_TRUE(isThere(volume_.path("system/bin/program")));
}

TEST_F(TreeRemovalTest, refusesEverythingWhileAProtectedPlaceIsUnknown) {
  const std::string file = volume_.file("file", "x");
  const std::string told = test::inChild([&]() -> std::string {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    if (::setrlimit(RLIMIT_NOFILE, &none) != 0) return "no limit";
    const RemovalPolicy policy = RemovalPolicy::forUser();
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) return "no limit";
    return textOf(removeItem(file, policy));
  });
  EXPECT_EQ(told, std::to_string(EMFILE) + " refused");
  EXPECT_TRUE(isThere(file));
}

TEST_F(TreeRemovalTest, protectedPlaceThatWasMovedIntoTheTreeStays) {
  volume_.file("place/file", "x");
  volume_.file("single", "x");
  volume_.file("top/other", "x");
  policy_.protectSelfAndAncestors(volume_.path("place"));
  policy_.protectSelfAndAncestors(volume_.path("single"));
  fs::rename(volume_.path("place"), volume_.path("top/place"));
  fs::rename(volume_.path("single"), volume_.path("top/single"));
  EXPECT_EQ(textOf(remove("top")), std::to_string(EPERM) + " refused");
  EXPECT_TRUE(isThere(volume_.path("top/place/file")));
  EXPECT_TRUE(isThere(volume_.path("top/single")));
  EXPECT_FALSE(isThere(volume_.path("top/other")));
}

TEST_F(TreeRemovalTest, refusesALinkAboveTheItemThatSomebodyElseOwns) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give links away";
  volume_.file("real/file", "x");
  volume_.link("link", "real");
  volume_.setOwner("link", test::kPlainUser);
  EXPECT_EQ(behindFence(volume_.path("link/file")), std::to_string(ELOOP) + " refused");
  EXPECT_TRUE(remove("link").isSuccess());
}

TEST_F(TreeRemovalTest, helperTakesOnlyWhatRootOrTheCallerOwns) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give files away";
  const RemovalPolicy policy = RemovalPolicy::forHelper(test::kPlainUser);
  volume_.file("mine", "x");
  volume_.file("roots", "x");
  volume_.file("foreign", "x");
  volume_.file("folder/foreign", "x");
  volume_.file("folder/mine", "x");
  volume_.file("theirs/mine", "x");
  volume_.file("sticky/mine", "x");
  volume_.file("sticky/roots", "x");
  for (const char* name : {"mine", "folder/mine", "theirs/mine", "sticky/mine"}) {
    volume_.setOwner(name, test::kPlainUser);
  }
  for (const char* name : {"foreign", "folder/foreign", "theirs", "sticky"}) {
    volume_.setOwner(name, test::kPlainUser + 1);
  }
  volume_.setMode("sticky", 01777);
  const auto told = [&](const char* name) { return textOf(removeItem(volume_.path(name), policy)); };
  const std::string refused = std::to_string(EPERM) + " refused";
  EXPECT_EQ(told("mine"), "0");
  EXPECT_EQ(told("roots"), "0");
  EXPECT_EQ(told("foreign"), refused);
  EXPECT_EQ(told("theirs/mine"), refused);
  EXPECT_EQ(told("theirs/none"), refused);
  EXPECT_EQ(told("sticky/mine"), "0");
  EXPECT_EQ(told("sticky/roots"), refused);
  EXPECT_EQ(told("sticky/none"), refused);
  EXPECT_EQ(told("folder"), refused);
  EXPECT_TRUE(isThere(volume_.path("folder/foreign")));
  EXPECT_FALSE(isThere(volume_.path("folder/mine")));
  EXPECT_TRUE(isThere(volume_.path("foreign")));
}

TEST_F(TreeRemovalTest, helperTellsNothingOfWhatLiesOnAForbiddenWay) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give files away";
  RemovalPolicy policy = RemovalPolicy::forHelper(test::kPlainUser);
  volume_.file("theirs/folder/file", "x");
  volume_.setOwner("theirs", test::kPlainUser + 1);
  volume_.link("theirs/link", "folder");
  volume_.setOwner("theirs/link", test::kPlainUser + 1);
  volume_.folder("system");
  policy.protectSubtree(volume_.path("system"));
  const std::string refused = std::to_string(EPERM) + " refused";
  for (const char* name : {"theirs/none/file", "theirs/folder/file", "theirs/folder/file/file",
                           "theirs/link/file", "system/none/file"}) {
    EXPECT_EQ(textOf(removeItem(volume_.path(name), policy)), refused) << name;
  }
  EXPECT_EQ(textOf(removeItem(volume_.path("none/file"), policy)), std::to_string(ENOENT) + " absent");
}

TEST_F(TreeRemovalTest, helperFollowsNoLinkOfTheCaller) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give links away";
  volume_.file("real/file", "x");
  volume_.link("link", "real");
  volume_.setOwner("link", test::kPlainUser);
  const RemovalPolicy policy = RemovalPolicy::forHelper(test::kPlainUser);
  EXPECT_EQ(textOf(removeItem(volume_.path("link/file"), policy)), std::to_string(ELOOP) + " refused");
  EXPECT_TRUE(isThere(volume_.path("real/file")));
}

// Mounts.

TEST_F(TreeRemovalTest, bind_mount_inside_target_survives) {
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

TEST_F(TreeRemovalTest, otherFileSystemInsideTargetSurvives) {
  const std::string point = volume_.folder("top/mount");
  const std::string told = test::inMountingChild([&]() -> std::string {
    if (::mount("tmpfs", point.c_str(), "tmpfs", 0, nullptr) != 0) return "skip";
    volume_.file("top/mount/file", "x");
    return textOf(remove("top")) + (isThere(point + "/file") ? " kept" : " lost");
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, std::to_string(EBUSY) + " kept");
}

TEST_F(TreeRemovalTest, btrfs_subvolume_inside_survives) {
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

TEST_F(TreeRemovalTest, mountPointItselfIsRefusedAndWhatLiesInItGoes) {
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

TEST_F(TreeRemovalTest, readOnlyFileSystemIsAnOrdinaryFailure) {
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

TEST_F(TreeRemovalTest, folder_unreadable_midway_not_empty) {
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

TEST_F(TreeRemovalTest, oneForbiddenEntryKeepsTheRestGoingAndNoModeChanges) {
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

TEST_F(TreeRemovalTest, foreignEntryOfAStickyFolderStays) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give files away";
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

TEST_F(TreeRemovalTest, depth_20000_with_256_fds) {
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

TEST_F(TreeRemovalTest, opensNoMoreThanSixtyFourFiles) {
  volume_.chain("top", "d", 300);
  const std::string told = test::inChild([&]() -> std::string {
    const rlim_t most = test::openDescriptors() + 64;
    const rlimit limit{most, most};
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) return "no limit";
    return textOf(remove("top"));
  });
  EXPECT_EQ(told, "0");
}

TEST_F(TreeRemovalTest, itemOfAPathLongerThanTheSystemTakesGoes) {
  const std::string deep = volume_.chain("top", std::string(200, 'd'), 40);
  const RemovalResult result = removeItem(deep, policy_);
  EXPECT_EQ(textOf(result), "0");
  EXPECT_EQ(result.removedEntries, 1U);
  EXPECT_EQ(textOf(removeItem(deep, policy_)), std::to_string(ENOENT) + " absent");
}

TEST_F(TreeRemovalTest, oneFolderOf200000EntriesNeedsLittleMemory) {
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

TEST_F(TreeRemovalTest, leavesNoDescriptorOpen) {
  volume_.chain("top", "d", 100);
  const std::size_t before = test::openDescriptors();
  EXPECT_TRUE(remove("top").isSuccess());
  EXPECT_EQ(textOf(remove("none/x")), std::to_string(ENOENT) + " absent");
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(TreeRemovalTest, aFileSystemBelowTheItemThatNeverAnswersIsNotAsked) {
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

// Somebody else at work in the same place.

/// Swaps two names as fast as it can while it lives.
class Swapper {
 public:
  /// Comes back when the swapping has begun.
  Swapper(std::string a, std::string b)
      : thread_([this, one = std::move(a), two = std::move(b)] {
          while (!isDone_) {
            ::syscall(SYS_renameat2, AT_FDCWD, one.c_str(), AT_FDCWD, two.c_str(), 2U /* RENAME_EXCHANGE */);
            hasBegun_ = true;
          }
        }) {
    while (!hasBegun_) std::this_thread::yield();
  }
  ~Swapper() {
    isDone_ = true;
    thread_.join();
  }
  Swapper(const Swapper&) = delete;
  Swapper& operator=(const Swapper&) = delete;

 private:
  std::atomic<bool> isDone_{false};
  std::atomic<bool> hasBegun_{false};
  std::thread thread_;
};

constexpr int kRounds = 100;

class RacingRemoval : public TreeRemovalTest {
 protected:
  RacingRemoval() {
    for (const char* name : {"a", "b/c", "d/item", "item", "f/item/g"}) {
      volume_.file(std::string("canary/") + name, "precious");
    }
    before_ = test::snapshotOf(volume_.path("canary"));
  }
  void expectCanaries() const { EXPECT_EQ(test::snapshotOf(volume_.path("canary")), before_); }
  /// Some rounds, and on until the race has been won and lost: who wins is up to the machine and its load.
  /// Each round answers whether its removal came through.
  static void race(const std::function<bool()>& round) {
    const auto end = std::chrono::steady_clock::now() + test::kPatience;
    int won = 0;
    int lost = 0;
    while (won + lost < kRounds || ((won == 0 || lost == 0) && std::chrono::steady_clock::now() < end)) {
      ++(round() ? won : lost);
    }
    EXPECT_GT(won, 0);
    EXPECT_GT(lost, 0);
  }

  std::vector<test::TreeEntry> before_;
};

TEST_F(RacingRemoval, swap_leaf_while_removing) {
  volume_.folder("work");
  const std::string item = volume_.path("work/item");
  const std::string link = volume_.path("work/link");
  {
    const Swapper swapper(item, link);
    race([&] {
      volume_.folder("fill/x/y");
      ::symlink("../canary", link.c_str());
      // A folder never takes the place of a link, so this can't land among the canaries.
      ::rename(volume_.path("fill").c_str(), item.c_str());
      return remove("work/item").isSuccess();
    });
  }
  expectCanaries();
}

TEST_F(RacingRemoval, swap_folder_in_the_tree_while_removing) {
  volume_.folder("work");
  const std::string item = volume_.path("work/item");
  const std::string aside = volume_.path("aside");
  {
    const Swapper swapper(item + "/sub", aside);
    race([&] {
      volume_.folder("fill/sub/x/y");
      ::symlink("canary", aside.c_str());
      ::rename(volume_.path("fill").c_str(), item.c_str());
      return remove("work/item").isSuccess();
    });
  }
  expectCanaries();
}

/// A folder above the item is swapped for a link of somebody else to the canaries, which have an item too.
TEST_F(RacingRemoval, swap_parent_while_removing) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give links away";
  const std::string parent = volume_.folder("work/parent");
  volume_.link("work/link", "../canary");
  volume_.setOwner("work/link", test::kPlainUser);
  const FileDescriptor real(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  {
    const Swapper swapper(parent, volume_.path("work/link"));
    race([&] {
      ::mkdirat(real.get(), "item", 0700);
      ::mkdirat(real.get(), "item/x", 0700);
      return remove("work/parent/item").isSuccess();
    });
  }
  expectCanaries();
}

/// The item is swapped for another folder, which nobody named.
TEST_F(RacingRemoval, swap_root_while_removing) {
  for (int round = 0; round < kRounds; ++round) {
    volume_.folder("work/item/x/y");
    const std::string item = volume_.path("work/item");
    const ItemNumber expected = numberOf(item);
    {
      const Swapper swapper(item, volume_.path("canary"));
      static_cast<void>(removeExpectedItem(item, expected, policy_));
    }
    // Put the canaries back where they were, if the last swap left them elsewhere.
    if (!isThere(volume_.path("canary/a")) && isThere(item + "/a")) {
      ASSERT_EQ(::syscall(SYS_renameat2, AT_FDCWD, item.c_str(), AT_FDCWD, volume_.path("canary").c_str(),
                          isThere(volume_.path("canary")) ? 2U : 0U),
                0);
    }
  }
  expectCanaries();
}

/// Swapped once, in the middle of the removal, for an empty folder, which the last step could take by
/// mistake.
TEST_F(RacingRemoval, swap_root_with_an_empty_folder_while_removing) {
  const std::string item = volume_.path("work/item");
  int swapped = 0;
  for (int round = 0; round < kRounds && swapped < 5; ++round) {
    for (int i = 0; i < 1000; ++i) volume_.file("work/item/" + std::to_string(i), "");
    const std::string other = volume_.folder("empty");
    const ItemNumber empty = numberOf(other);
    const ItemNumber expected = numberOf(item);
    bool isSwapped = false;
    std::thread swapper([&] {
      const auto hasBegun = [&] {
        for (int i = 0; i < 8; ++i) {
          if (!isThere(item + '/' + std::to_string(i))) return true;
        }
        return false;
      };
      while (!hasBegun()) {
      }
      isSwapped = ::syscall(SYS_renameat2, AT_FDCWD, item.c_str(), AT_FDCWD, other.c_str(),
                            2U /* RENAME_EXCHANGE */) == 0;
    });
    const RemovalResult result = removeExpectedItem(item, expected, policy_);
    swapper.join();
    if (isSwapped) {
      ++swapped;
      EXPECT_EQ(result.error, ESTALE);
      ASSERT_TRUE(isThere(item));
      EXPECT_EQ(numberOf(item), empty);
    }
    for (const char* name : {"work/item", "empty"}) static_cast<void>(remove(name));
  }
  EXPECT_EQ(swapped, 5);
}

/// Moves a folder out of a tree that is removed, to a place among the canaries: whoever climbed up from there
/// by ".." would stand among them. "" if they are as they were.
std::string moveUpWhileRemoving(const RemovalPolicy& policy) {
  constexpr int depth = 120;
  const test::TemporaryVolume volume;
  volume.file("canary/a/file", "precious");
  const auto before = test::snapshotOf(volume.path("canary/a"));
  int moved = 0;
  for (int round = 0; round < 2000 && moved < 10; ++round) {
    const std::string bottom = volume.chain("work/item", "d", depth);
    std::string middle = volume.path("work/item");
    for (int i = 0; i < depth / 2; ++i) middle += "/d";
    std::thread mover([&] {
      // Now the removal is on its way back, and the folders far up are closed.
      while (isThere(bottom)) {
      }
      ::rename(middle.c_str(), volume.path("canary/moved").c_str());
    });
    static_cast<void>(removeItem(volume.path("work/item"), policy));
    mover.join();
    if (removeItem(volume.path("canary/moved"), policy).isSuccess()) ++moved;
    if (!isThere(volume.path("work"))) return "more than the item is gone";
    static_cast<void>(removeItem(volume.path("work"), policy));
  }
  if (moved == 0) return "was never moved";
  return test::snapshotOf(volume.path("canary/a")) == before ? "" : "canaries changed";
}

/// In a file system of its own, with all others read-only: a mistake here would climb up to "/".
TEST_F(TreeRemovalTest, dir_moved_up_while_removing) {
  const std::string point = volume_.folder("memory");
  const std::string told = test::inMountingChild([&]() -> std::string {
    if (::mount("tmpfs", point.c_str(), "tmpfs", 0, nullptr) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0) {
      return "skip";
    }
    ::setenv("TMPDIR", point.c_str(), 1);
    return moveUpWhileRemoving(policy_);
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, "");
}

// Trees at random. SORREL_PROPERTY_CASES sets the number of cases, SORREL_PROPERTY_SEED the first one's seed.

/// One tree, a selection in it, and a removal of the selection.
class RandomCase {
 public:
  RandomCase(const test::TemporaryVolume& volume, std::uint64_t seed)
      : top_(volume.folder("case")),
        random_(seed),
        isRoot_(::geteuid() == 0),
        isPlain_(isRoot_ && pick(2) == 0) {
    volume.setMode("", 0755);
    makeTree();
  }

  /// What is wrong with the removal, "" if nothing is.
  std::string run(const RemovalPolicy& policy) {
    const auto before = byPath();
    for (std::size_t i = 0, count = 1 + pick(4); i < count; ++i)
      selected_.insert(paths_[pick(paths_.size())]);
    std::string wrong;
    for (const std::string& path : selected_) wrong += removeOne(path, policy);
    return wrong + compare(before, byPath());
  }

 private:
  using Entries = std::map<std::string, test::TreeEntry>;

  std::size_t pick(std::size_t count) { return static_cast<std::size_t>(random_() % count); }

  std::string newName() {
    static const std::array<std::string, 10> odd = {"-rf", "a\nb", "\xFF", " ", "*",
                                                    "%2F", "...",  "é",    "~", std::string(255, 'l')};
    const std::string number = std::to_string(paths_.size());
    return pick(4) != 0 ? number : odd[pick(odd.size())].substr(0, 250) + number;
  }

  void makeTree() {
    std::vector<std::string> folders = {top_};
    std::vector<std::string> files;
    for (std::size_t i = 0, count = 3 + pick(25); i < count; ++i) {
      const std::string path = folders[pick(folders.size())] + '/' + newName();
      switch (pick(8)) {
        case 0:
        case 1:
        case 2:
          ::mkdir(path.c_str(), 0755);
          folders.push_back(path);
          break;
        case 3: {
          const std::array<std::string, 5> targets = {"/", "..", ".", "none", top_};
          const std::string target =
              paths_.empty() || pick(2) == 0 ? targets[pick(5)] : paths_[pick(paths_.size())];
          ::symlink(target.c_str(), path.c_str());
          break;
        }
        case 4:
          ::mkfifo(path.c_str(), 0600);
          break;
        case 5:
          if (!files.empty() && ::link(files[pick(files.size())].c_str(), path.c_str()) == 0) break;
          [[fallthrough]];
        default:
          std::ofstream(path) << i;
          files.push_back(path);
      }
      paths_.push_back(path);
    }
    if (isPlain_) giveAway(folders);
  }

  /// Lets rights decide: each item belongs to the plain user or to root, folders have odd modes.
  void giveAway(const std::vector<std::string>& folders) {
    static constexpr std::array<mode_t, 7> modes = {0755, 0755, 0755, 0700, 0500, 0000, 01777};
    for (const std::string& path : paths_) {
      if (pick(4) != 0) {
        EXPECT_EQ(::lchown(path.c_str(), test::kPlainUser, test::kPlainUser), 0);
      }
    }
    EXPECT_EQ(::lchown(top_.c_str(), test::kPlainUser, test::kPlainUser), 0);
    for (std::size_t i = 1; i < folders.size(); ++i) ::chmod(folders[i].c_str(), modes[pick(modes.size())]);
  }

  std::string removeOne(const std::string& path, const RemovalPolicy& policy) const {
    const bool wasThere = isThere(path);
    if (isPlain_) ::setfsuid(test::kPlainUser);
    const RemovalResult result = removeItem(path, policy);
    if (isPlain_) ::setfsuid(0);
    if (!wasThere) return result.error != 0 ? "" : path + ": was gone, and reported as removed\n";
    if (result.isSuccess() == isThere(path)) return path + ": ended with " + textOf(result) + '\n';
    if (!result.isSuccess() && isRoot_ && !isPlain_) return path + ": root failed, " + textOf(result) + '\n';
    return "";
  }

  [[nodiscard]] Entries byPath() const {
    Entries entries;
    for (test::TreeEntry& entry : test::snapshotOf(top_)) {
      if (S_ISDIR(entry.mode)) entry.size = entry.modifiedSeconds = entry.modifiedNanoseconds = 0;
      entries.emplace(top_ + '/' + entry.path, entry);
    }
    return entries;
  }

  [[nodiscard]] bool isSelected(const std::string& path) const {
    return std::ranges::any_of(
        selected_, [&](const std::string& item) { return path == item || path.starts_with(item + '/'); });
  }

  [[nodiscard]] std::string compare(const Entries& before, const Entries& after) const {
    std::string wrong;
    for (const auto& [path, entry] : before) {
      const auto found = after.find(path);
      if (found == after.end() ? !isSelected(path) : found->second != entry) wrong += path + ": changed\n";
    }
    for (const auto& [path, entry] : after) {
      if (!before.contains(path)) wrong += path + ": new\n";
    }
    return wrong;
  }

  std::string top_;
  std::mt19937_64 random_;
  bool isRoot_;
  bool isPlain_;
  std::vector<std::string> paths_;
  std::set<std::string> selected_;
};

/// The cases from seed `first` on; what is wrong with the first bad one, "" if nothing is.
std::string runCases(std::uint64_t first, std::uint64_t count) {
  const RemovalPolicy policy = RemovalPolicy::forUser();
  for (std::uint64_t seed = first; seed < first + count; ++seed) {
    const test::TemporaryVolume volume;
    const std::string wrong = RandomCase(volume, seed).run(policy);
    if (!wrong.empty()) return "SORREL_PROPERTY_SEED=" + std::to_string(seed) + '\n' + wrong;
  }
  return "";
}

/// In batches, each in a child with a file system in memory of its own where that is possible.
TEST(TreeRemovalProperty, onlyTheSelectionChangesAndSuccessMeansGone) {
  constexpr std::uint64_t batch = 500;
  const std::uint64_t first = test::numberFrom("SORREL_PROPERTY_SEED", 1);
  const std::uint64_t end = first + test::numberFrom("SORREL_PROPERTY_CASES", 2000);
  for (std::uint64_t seed = first; seed < end; seed += batch) {
    ASSERT_EQ(test::inMemoryChild([&] { return runCases(seed, std::min(batch, end - seed)); }), "");
  }
}

// Several removals by one TreeRemover

class TreeRemoverTest : public testing::Test {
 protected:
  RemovalResult remove(const std::string& name) { return remover.removeItem(volume.path(name)); }

  test::TemporaryVolume volume;
  RemovalPolicy policy = RemovalPolicy::forUser();
  TreeRemover remover{policy};
};

TEST_F(TreeRemoverTest, itemsOfOneFolderGoOneAfterTheOther) {
  for (const char* const name : {"d/a", "d/b", "d/c/x", "d/stays"}) volume.file(name, "1");
  for (const char* const name : {"d/a", "d/b", "d/c"}) {
    EXPECT_TRUE(remove(name).isSuccess()) << name;
    EXPECT_FALSE(isThere(volume.path(name)));
  }
  EXPECT_TRUE(isThere(volume.path("d/stays")));
}

TEST_F(TreeRemoverTest, eachResultIsThatOfItsOwnItem) {
  volume.file("d/a", "1");
  volume.file("d/c/x", "1");
  EXPECT_EQ(remove("d/missing").error, ENOENT);
  EXPECT_EQ(remove("d/a").removedEntries, 1U);
  EXPECT_EQ(remove("d/missing").error, ENOENT);
  EXPECT_EQ(remove("d/c").removedEntries, 2U);
}

TEST_F(TreeRemoverTest, folderThatTookThePlaceOfTheLastOneIsTheOneThatCounts) {
  for (const char* const name : {"d/a", "d/b", "other/b"}) volume.file(name, "1");
  ASSERT_TRUE(remove("d/a").isSuccess());
  fs::rename(volume.path("d"), volume.path("moved"));
  fs::rename(volume.path("other"), volume.path("d"));
  EXPECT_TRUE(remove("d/b").isSuccess());
  EXPECT_TRUE(isThere(volume.path("moved/b")));
  EXPECT_FALSE(isThere(volume.path("d/b")));
}

TEST_F(TreeRemoverTest, linkOfAStrangerInThePlaceOfTheLastFolderIsNotFollowed) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a link away";
  for (const char* const name : {"d/a", "precious/b"}) volume.file(name, "1");
  ASSERT_TRUE(remove("d/a").isSuccess());
  fs::rename(volume.path("d"), volume.path("moved"));
  volume.link("d", "precious");
  ASSERT_EQ(::lchown(volume.path("d").c_str(), test::kPlainUser, test::kPlainUser), 0);
  EXPECT_EQ(remove("d/b").error, ELOOP);
  EXPECT_TRUE(isThere(volume.path("precious/b")));
}

TEST_F(TreeRemoverTest, strangersLinkAboveTheLastFolderIsNotFollowedEither) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a link away";
  for (const char* const name : {"up/d/a", "up/d/b"}) volume.file(name, "1");
  ASSERT_TRUE(remove("up/d/a").isSuccess());
  // The same folder, by the same text, behind a link now.
  fs::rename(volume.path("up"), volume.path("moved"));
  volume.link("up", "moved");
  ASSERT_EQ(::lchown(volume.path("up").c_str(), test::kPlainUser, test::kPlainUser), 0);
  EXPECT_EQ(remove("up/d/b").error, ELOOP);
  EXPECT_TRUE(isThere(volume.path("moved/d/b")));
}

TEST_F(TreeRemoverTest, protectedItemOfTheLastFolderIsRefused) {
  volume.file("d/a", "1");
  volume.file("d/home/x", "1");
  RemovalPolicy withHome = RemovalPolicy::forUser();
  withHome.protectSelfAndAncestors(volume.path("d/home"));
  TreeRemover careful(withHome);
  EXPECT_TRUE(careful.removeItem(volume.path("d/a")).isSuccess());
  EXPECT_EQ(careful.removeItem(volume.path("d/home")).error, EPERM);
  EXPECT_TRUE(isThere(volume.path("d/home/x")));
}

TEST_F(TreeRemoverTest, folderWithinAProtectedSubtreeIsRefusedEachTime) {
  volume.file("sub/d/a", "1");
  volume.file("sub/d/b", "1");
  RemovalPolicy withSubtree = RemovalPolicy::forUser();
  withSubtree.protectSubtree(volume.path("sub"));
  TreeRemover careful(withSubtree);
  for (const char* const name : {"sub/d/a", "sub/d/b"}) {
    EXPECT_EQ(careful.removeItem(volume.path(name)).error, EPERM) << name;
    EXPECT_TRUE(isThere(volume.path(name)));
  }
}

}  // namespace
}  // namespace sorrel
