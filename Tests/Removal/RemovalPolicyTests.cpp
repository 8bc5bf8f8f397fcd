#include "SorrelFramework/Removal/RemovalPolicy.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "SorrelFramework/Removal/PathWalk.hpp"
#include "SorrelFramework/Removal/RemovalTarget.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/RemovalKit.hpp"
#include "Tests/Support/ScopedVariable.hpp"
#include "Tests/Support/SilentFileSystem.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

using Actor = RemovalPolicy::Actor;

constexpr std::uint32_t kAlice = test::kKnownUser;
constexpr std::uint32_t kBob = 10002;

bool everybody(std::uint32_t /*owner*/) { return true; }

/// True if the item itself may not be removed. These tests only query; nothing is removed.
bool protects(const RemovalPolicy& policy, const std::string& path) {
  const auto identity = identityOf(AT_FDCWD, path.c_str());
  return identity && policy.protects(identity->number);
}

bool protectsWhatLiesIn(const RemovalPolicy& policy, const std::string& path) {
  const PathWalk walk = PathWalk::into(path, everybody);
  EXPECT_EQ(walk.error(), 0) << path;
  return policy.protectsWhatLiesIn(walk.chain());
}

ItemIdentity folderOf(std::uint32_t uid, std::uint32_t mode = 0755) {
  ItemIdentity identity;
  identity.mode = S_IFDIR | mode;
  identity.uid = uid;
  return identity;
}

/// Errors of a policy for a user and of one for a helper that are made without a free descriptor.
TEST(RemovalPolicy, placeThatCannotBeLookedUpIsAnError) {
  EXPECT_EQ(RemovalPolicy::forUser().error(), 0);
  EXPECT_EQ(RemovalPolicy::forHelper(kAlice).error(), 0);
  const std::string told = test::inChild([]() -> std::string {
    const rlimit none{0, 0};
    if (::setrlimit(RLIMIT_NOFILE, &none) != 0) return "no limit";
    return std::to_string(RemovalPolicy::forUser().error()) + " " +
           std::to_string(RemovalPolicy::forHelper(kAlice).error());
  });
  EXPECT_EQ(told, std::to_string(EMFILE) + " " + std::to_string(EMFILE));
}

TEST(RemovalPolicy, placeThatIsNotThereIsNoError) {
  const test::TemporaryVolume volume;
  RemovalPolicy policy = RemovalPolicy::forUser();
  volume.file("file");
  volume.link("loop", "loop");
  for (const char* name : {"absent", "absent/d", "file/d", "loop"}) {
    policy.protectSelfAndAncestors(volume.path(name));
    policy.protectSubtree(volume.path(name));
  }
  EXPECT_EQ(policy.error(), 0);
}

TEST(RemovalPolicy, knowsNormalPaths) {
  for (const char* path : {"/a", "/a/b", "/...", "/.a", "/a b\n", "/\xFF", "/-rf", "/a/..b"}) {
    EXPECT_TRUE(RemovalPolicy::isNormalPath(path)) << path;
  }
  for (const char* path : {"", "/", "//", "/.", "/..", "/../", "a", "./a", "//a", "/a//b", "/a/", "/a/.",
                           "/a/./b", "/a/..", "/a/../b", "~", "."}) {
    EXPECT_FALSE(RemovalPolicy::isNormalPath(path)) << path;
  }
  EXPECT_FALSE(RemovalPolicy::isNormalPath(std::string_view("/a\0b", 4)));
  const std::string mebibyte = '/' + std::string((1U << 20U) - 1, 'a');
  EXPECT_TRUE(RemovalPolicy::isNormalPath(mebibyte));
  EXPECT_FALSE(RemovalPolicy::isNormalPath(mebibyte + 'a'));
}

TEST(RemovalPolicy, keepsSystemPlacesAndHomesForEveryActor) {
  for (const RemovalPolicy& policy : {RemovalPolicy::forUser(), RemovalPolicy::forHelper(kAlice)}) {
    for (const char* path : {"/", "/home", "/root", "/var", "/opt", "/srv", "/mnt", "/media", "/tmp",
                             "/var/tmp", "/var/log", "/var/spool", "/var/cache", "/var/mail"}) {
      if (::access(path, F_OK) == 0) {
        EXPECT_TRUE(protects(policy, path)) << path;
      }
    }
    EXPECT_TRUE(protects(policy, ::getpwuid(0)->pw_dir));
    EXPECT_TRUE(protects(policy, ".")) << "the current folder";
    EXPECT_TRUE(protects(policy, "..")) << "what lies above the current folder";
    EXPECT_TRUE(policy.protectsEntriesOf(identityOf(AT_FDCWD, "/")->number));
    EXPECT_FALSE(policy.protectsEntriesOf(identityOf(AT_FDCWD, "/var")->number));
  }
}

/// Makes an empty "/" with these folders in it the root of this process, which may mount.
bool enterRootWith(const std::string& point, const std::vector<std::string>& folders) {
  if (::mount("root", point.c_str(), "tmpfs", 0, "mode=755") != 0 || ::chroot(point.c_str()) != 0 ||
      ::chdir("/") != 0) {
    return false;
  }
  for (const std::string& folder : folders) std::filesystem::create_directories(folder);
  std::ofstream("/etc/passwd") << "root:x:0:0::/root:/bin/sh\nuser:x:" << kAlice << ":1::/home/user:\n";
  return true;
}

// On a root of its own, since few machines have all of these folders.
class EverySystemPlace : public testing::TestWithParam<const char*> {};

TEST_P(EverySystemPlace, isKeptWholeByTheHelper) {
  const test::TemporaryVolume volume;
  const std::string place = GetParam();
  const std::string told = test::inMountingChild([&]() -> std::string {
    if (!enterRootWith(volume.path(), {"/etc", "/other/x", place + "/in"})) return "skip";
    std::ofstream(place + "/in/file") << 'x';
    const RemovalPolicy policy = RemovalPolicy::forHelper(kAlice);
    std::string answers = std::to_string(policy.error());
    for (const std::string& path : {place, place + "/in", place + "/in/file", place + "/none"}) {
      answers += RemovalTarget::find(path, policy).isRefused() ? " refused" : " free";
    }
    return answers + (RemovalTarget::find("/other/x", policy).error() == 0 ? " free" : " refused");
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, "0 refused refused refused refused free");
}
INSTANTIATE_TEST_SUITE_P(RemovalPolicy, EverySystemPlace,
                         testing::Values("/usr", "/etc", "/boot", "/efi", "/bin", "/lib", "/lib32", "/lib64",
                                         "/libx32", "/sbin", "/proc", "/sys", "/dev", "/run", "/var/lib",
                                         "/nix", "/gnu", "/sysroot", "/ostree", "/snap", "/root",
                                         "/var/spool/cron"));

class EverySharedPlace : public testing::TestWithParam<const char*> {};

TEST_P(EverySharedPlace, isKeptItselfAndWhatLiesInItMayGo) {
  const test::TemporaryVolume volume;
  const std::string place = GetParam();
  const std::string told = test::inMountingChild([&]() -> std::string {
    if (!enterRootWith(volume.path(), {"/etc", place + "/in"})) return "skip";
    const RemovalPolicy policy = RemovalPolicy::forHelper(kAlice);
    std::string answers;
    for (const std::string& path : {place, place + "/in"}) {
      answers += RemovalTarget::find(path, policy).isRefused() ? " refused" : " free";
    }
    return answers;
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, " refused free");
}
INSTANTIATE_TEST_SUITE_P(RemovalPolicy, EverySharedPlace,
                         testing::Values("/home", "/opt", "/srv", "/mnt", "/media", "/tmp", "/var",
                                         "/var/tmp", "/var/log", "/var/spool", "/var/cache", "/var/mail",
                                         "/run/media", "/usr/local", "/home/user",
                                         "/home/user/.local/share/Trash", "/anything-else"));

TEST(RemovalPolicy, aUserWhoIsRootCleansItsOwnHome) {
  if (::geteuid() != 0 || ::access("/root", F_OK) != 0) GTEST_SKIP() << "no root, or without a home";
  EXPECT_FALSE(protectsWhatLiesIn(RemovalPolicy::forUser(), "/root"));
  EXPECT_TRUE(protectsWhatLiesIn(RemovalPolicy::forHelper(kAlice), "/root"));
}

TEST(RemovalPolicy, helperKeepsWhatLiesInSystemPlacesOfThisMachine) {
  const RemovalPolicy policy = RemovalPolicy::forHelper(kAlice);
  for (const char* path :
       {"/usr", "/usr/bin", "/etc", "/bin", "/sbin", "/lib", "/proc", "/dev", "/var/lib"}) {
    if (::access(path, F_OK) == 0) {
      EXPECT_TRUE(protectsWhatLiesIn(policy, path)) << path;
    }
  }
  EXPECT_FALSE(protectsWhatLiesIn(policy, "/"));
  EXPECT_FALSE(protectsWhatLiesIn(policy, "/var"));
}

TEST(RemovalPolicy, homeOfADaemonInAProtectedSubtreeLiftsNothing) {
  const RemovalPolicy policy = RemovalPolicy::forHelper(kAlice);
  ::setpwent();
  while (const passwd* user = ::getpwent()) {
    const std::string home = user->pw_dir;
    if (home.starts_with("/usr/") && ::access(home.c_str(), F_OK) == 0) {
      EXPECT_TRUE(protectsWhatLiesIn(policy, home)) << home;
    }
  }
  ::endpwent();
}

TEST(RemovalPolicy, whatLiesInUsrLocalMayGoAndItselfStays) {
  if (::access("/usr/local", F_OK) != 0) GTEST_SKIP() << "there is none";
  const RemovalPolicy policy = RemovalPolicy::forHelper(kAlice);
  EXPECT_FALSE(protectsWhatLiesIn(policy, "/usr/local"));
  EXPECT_TRUE(protects(policy, "/usr/local"));
}

TEST(RemovalPolicy, onlyAUserWhoIsRootGetsTheSubtrees) {
  if (::geteuid() == 0) {
    EXPECT_TRUE(protectsWhatLiesIn(RemovalPolicy::forUser(), "/usr"));
    EXPECT_EQ(test::inPlainChild(
                  [] { return std::to_string(protectsWhatLiesIn(RemovalPolicy::forUser(), "/usr")); }),
              "0");
  } else {
    EXPECT_FALSE(protectsWhatLiesIn(RemovalPolicy::forUser(), "/usr"));
  }
}

TEST(RemovalPolicy, keepsTheTrashFolderOfTheUserButNotWhatLiesInIt) {
  const test::TemporaryVolume volume;
  const std::string file = volume.file(".local/share/Trash/files/old", "x");
  const test::ScopedVariable home("HOME", volume.path().c_str());
  const RemovalPolicy policy = RemovalPolicy::forUser();
  EXPECT_TRUE(protects(policy, volume.path()));
  EXPECT_TRUE(protects(policy, volume.path(".local/share/Trash")));
  EXPECT_TRUE(protects(policy, volume.path(".local")));
  EXPECT_FALSE(protects(policy, volume.path(".local/share/Trash/files")));
  EXPECT_FALSE(protects(policy, file));
}

/// A policy without built-in paths near those of the test.
class PolicyOnScratch : public testing::Test {
 protected:
  test::TemporaryVolume volume_;
  RemovalPolicy policy_ = RemovalPolicy::forHelper(kAlice);
};

TEST_F(PolicyOnScratch, protectsAPlaceAndAllAboveButNothingElse) {
  volume_.folder("a/b/c");
  volume_.folder("a/other");
  policy_.protectSelfAndAncestors(volume_.path("a/b"));
  EXPECT_TRUE(protects(policy_, volume_.path("a/b")));
  EXPECT_TRUE(protects(policy_, volume_.path("a")));
  EXPECT_TRUE(protects(policy_, volume_.path()));
  EXPECT_FALSE(protects(policy_, volume_.path("a/b/c")));
  EXPECT_FALSE(protects(policy_, volume_.path("a/other")));
  EXPECT_FALSE(protectsWhatLiesIn(policy_, volume_.path("a/b")));
}

TEST_F(PolicyOnScratch, placeNamedByALinkKeepsTheLinkAndItsWay) {
  volume_.folder("real/place");
  volume_.link("second", "real/place");
  volume_.link("first", "second");
  policy_.protectSelfAndAncestors(volume_.path("first"));
  for (const char* name : {"first", "second", "real/place", "real"}) {
    EXPECT_TRUE(protects(policy_, volume_.path(name))) << name;
  }
}

TEST_F(PolicyOnScratch, deepestListedSubtreeOrExceptionDecides) {
  volume_.folder("a/b/c/d");
  policy_.protectSubtree(volume_.path("a"));
  policy_.allowSubtree(volume_.path("a/b"));
  policy_.protectSubtree(volume_.path("a/b/c"));
  EXPECT_FALSE(protectsWhatLiesIn(policy_, volume_.path()));
  EXPECT_TRUE(protectsWhatLiesIn(policy_, volume_.path("a")));
  EXPECT_FALSE(protectsWhatLiesIn(policy_, volume_.path("a/b")));
  EXPECT_TRUE(protectsWhatLiesIn(policy_, volume_.path("a/b/c/d")));
}

TEST_F(PolicyOnScratch, exceptionCannotLiftASubtreeOfTheSamePlace) {
  volume_.folder("a");
  policy_.protectSubtree(volume_.path("a"));
  policy_.allowSubtree(volume_.path("a"));
  EXPECT_TRUE(protectsWhatLiesIn(policy_, volume_.path("a")));
}

TEST_F(PolicyOnScratch, placeInASubtreeDoesNotLiftIt) {
  volume_.folder("a/home");
  policy_.protectSubtree(volume_.path("a"));
  policy_.protectSelfAndAncestors(volume_.path("a/home"));
  EXPECT_TRUE(protectsWhatLiesIn(policy_, volume_.path("a/home")));
}

TEST_F(PolicyOnScratch, placeThatDoesNotExistIsPassedOver) {
  policy_.protectSelfAndAncestors(volume_.path("none/below"));
  policy_.protectSubtree("relative");
  policy_.protectSubtree("");
  EXPECT_FALSE(protects(policy_, volume_.path()));
}

TEST_F(PolicyOnScratch, keepsTheWayToAPlaceThatIsClosedToThisProcess) {
  volume_.folder("homes/closed/home");
  volume_.folder("homes/other");
  volume_.setMode("", 0755);
  volume_.setMode("homes/closed", 0);
  const std::string told = test::inPlainChild([&]() -> std::string {
    RemovalPolicy policy = RemovalPolicy::forUser();
    policy.protectSelfAndAncestors(volume_.path("homes/closed/home"));
    std::string kept = std::to_string(policy.error());
    for (const char* name : {"", "homes", "homes/closed", "homes/other"}) {
      kept += protects(policy, volume_.path(name)) ? " kept" : " free";
    }
    return kept;
  });
  EXPECT_EQ(told, "0 kept kept kept free");
}

TEST_F(PolicyOnScratch, keepsTheWayToAPlaceOnAFileSystemThatIsGone) {
  volume_.folder("homes/gone");
  const std::string told = test::inMountingChild([&]() -> std::string {
    // Its server has ended: each query gets ENOTCONN.
    if (!test::mountSilentFileSystem(volume_.path("homes/gone")).isOpen()) return "skip";
    RemovalPolicy policy = RemovalPolicy::forUser();
    policy.protectSelfAndAncestors(volume_.path("homes/gone/home"));
    return std::to_string(policy.error()) + (protects(policy, volume_.path("homes")) ? " kept" : " free");
  });
  if (told == "skip") GTEST_SKIP() << "no file system can be mounted here";
  EXPECT_EQ(told, "0 kept");
}

TEST_F(PolicyOnScratch, keepsWhatStandsAboveAPlaceOnAMountThatIsNotTrusted) {
  const std::string above = volume_.folder("above");
  const std::string mounted = volume_.folder("above/mounted");
  const std::string told = test::inMountingChild([&]() -> std::string {
    if (::mount("tmpfs", mounted.c_str(), "tmpfs", 0, nullptr) != 0) return "skip";
    const auto inside = identityOf(AT_FDCWD, mounted.c_str());
    const auto outside = identityOf(AT_FDCWD, above.c_str());
    if (!inside || !outside) return "no identity";
    RemovalPolicy policy =
        RemovalPolicy::forHelper(0, [&](std::uint64_t mount) { return mount != inside->mount; });
    policy.protectSelfAndAncestors(mounted + "/home");
    return policy.protects(outside->number) ? "kept" : "lost";
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, "kept");
}

TEST_F(PolicyOnScratch, fileCanBeAPlace) {
  const std::string file = volume_.file("a/program", "x");
  policy_.protectSelfAndAncestors(file);
  EXPECT_TRUE(protects(policy_, file));
  EXPECT_TRUE(protects(policy_, volume_.path("a")));
}

TEST(RemovalPolicy, userFollowsLinksOfRootAndItsOwn) {
  const RemovalPolicy policy = RemovalPolicy::forUser();
  EXPECT_EQ(policy.actor(), Actor::User);
  EXPECT_EQ(policy.caller(), ::geteuid());
  EXPECT_TRUE(policy.trustsLinkOf(0));
  EXPECT_TRUE(policy.trustsLinkOf(::geteuid()));
  EXPECT_FALSE(policy.trustsLinkOf(kBob));
  EXPECT_TRUE(policy.trustsItemOf(kBob));
  EXPECT_TRUE(policy.trustsWay({folderOf(0), folderOf(kBob)}));
}

TEST(RemovalPolicy, helperFollowsLinksOfRootOnly) {
  const RemovalPolicy policy = RemovalPolicy::forHelper(kAlice);
  EXPECT_EQ(policy.actor(), Actor::Helper);
  EXPECT_EQ(policy.caller(), kAlice);
  EXPECT_TRUE(policy.trustsLinkOf(0));
  EXPECT_FALSE(policy.trustsLinkOf(kAlice));
  EXPECT_FALSE(policy.trustsLinkOf(kBob));
}

TEST(RemovalPolicy, helperWantsItemsOfRootOrTheCaller) {
  const RemovalPolicy policy = RemovalPolicy::forHelper(kAlice);
  EXPECT_TRUE(policy.trustsItemOf(0));
  EXPECT_TRUE(policy.trustsItemOf(kAlice));
  EXPECT_FALSE(policy.trustsItemOf(kBob));
}

TEST(RemovalPolicy, helperWantsAWayOfRootAndTheCaller) {
  const RemovalPolicy policy = RemovalPolicy::forHelper(kAlice);
  EXPECT_TRUE(policy.trustsWay({folderOf(0), folderOf(kAlice)}));
  EXPECT_FALSE(policy.trustsWay({folderOf(0), folderOf(kBob)}));
  EXPECT_FALSE(policy.trustsWay({folderOf(0), folderOf(kBob), folderOf(kAlice)}));
}

TEST(RemovalPolicy, helperTrustsAStickyFolderOfRootOnly) {
  const RemovalPolicy policy = RemovalPolicy::forHelper(kAlice);
  EXPECT_TRUE(policy.trustsWay({folderOf(0), folderOf(0, 01777), folderOf(kAlice)}));
  // The owner of a sticky folder may rename every entry of it.
  EXPECT_FALSE(policy.trustsWay({folderOf(0), folderOf(kBob, 01777), folderOf(kAlice)}));
}

TEST(RemovalPolicy, helperRefusesEverythingIfTheLookUpOfTheCallerFails) {
  constexpr std::uint32_t kUnknown = 2'000'000'001;
  ASSERT_EQ(::getpwuid(kUnknown), nullptr);
  EXPECT_EQ(RemovalPolicy::forHelper(kUnknown).error(), ESRCH);
  EXPECT_EQ(RemovalPolicy::forHelper(kAlice).error(), 0);
}

TEST(RemovalPolicy, helperKeepsTheHomesThatThePasswordFileLists) {
  const test::TemporaryVolume volume;
  const std::string home = volume.folder("homes/home");
  const std::string other = volume.folder("elsewhere/other");
  const std::string told = test::inMountingChild([&]() -> std::string {
    const std::string users =
        volume.file("passwd", "root:x:0:0::/root:/bin/sh\nuser:x:" + std::to_string(kAlice) + ":1::" + home +
                                  ":\nother:x:" + std::to_string(kBob) + ":1::" + other + ":\n");
    if (::mount(users.c_str(), "/etc/passwd", nullptr, MS_BIND, nullptr) != 0) return "skip";
    const RemovalPolicy policy = RemovalPolicy::forHelper(kAlice);
    std::string kept;
    for (const std::string& path : {home, volume.path("homes"), other, volume.path("elsewhere")})
      kept += protects(policy, path) ? "kept " : "free ";
    return kept;
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, "kept kept kept kept ");
}

TEST(RemovalPolicy, helperKeepsItsOwnProgram) {
  const std::string program = std::filesystem::read_symlink("/proc/self/exe");
  EXPECT_TRUE(protects(RemovalPolicy::forHelper(kAlice), program));
}

TEST(RemovalPolicy, movesWithItsLists) {
  const test::TemporaryVolume volume;
  RemovalPolicy policy = RemovalPolicy::forUser();
  policy.protectSubtree(volume.path());
  RemovalPolicy moved = std::move(policy);
  EXPECT_TRUE(protectsWhatLiesIn(moved, volume.path()));
}

}  // namespace
}  // namespace sorrel
