#include "SorrelFramework/Removal/RemovalTarget.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/RemovalKit.hpp"
#include "Tests/Support/SilentFileSystem.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

constexpr unsigned kCaller = test::kKnownUser;
constexpr unsigned kThird = 10003;

std::string textOf(const RemovalTarget& target) {
  return std::to_string(target.error()) + (target.isRefused() ? " refused" : "") +
         (target.isAbsent() ? " absent" : "");
}
std::string refused(int error) { return std::to_string(error) + " refused"; }

class RemovalTargetTest : public testing::Test {
 protected:
  [[nodiscard]] RemovalTarget find(std::string_view name) const {
    return RemovalTarget::find(volume_.path(name), policy_);
  }
  test::TemporaryVolume volume_;
  RemovalPolicy policy_ = RemovalPolicy::forUser();
};

TEST_F(RemovalTargetTest, holdsTheItemAndItsFolderAndRemovesNothing) {
  const std::string path = volume_.file("folder/file", "x");
  const RemovalTarget target = find("folder/file");
  ASSERT_EQ(target.error(), 0);
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(target.identity().number, (ItemNumber{status.st_dev, status.st_ino}));
  EXPECT_EQ(identityOf(target.item())->number, target.identity().number);
  EXPECT_EQ(identityOf(target.folder(), target.leaf().c_str())->number, target.identity().number);
  EXPECT_EQ(target.leaf(), "file");
  EXPECT_EQ(target.chain().back().number, identityOf(AT_FDCWD, volume_.path("folder").c_str())->number);
  EXPECT_TRUE(target.isStillThere());
}

TEST_F(RemovalTargetTest, anotherItemUnderTheNameIsNotTheOneThatWasFound) {
  volume_.file("file", "x");
  volume_.file("other", "y");
  const RemovalTarget target = find("file");
  ASSERT_EQ(::rename(volume_.path("other").c_str(), volume_.path("file").c_str()), 0);
  EXPECT_FALSE(target.isStillThere());
  ASSERT_EQ(::unlink(volume_.path("file").c_str()), 0);
  EXPECT_FALSE(target.isStillThere());
}

TEST_F(RemovalTargetTest, onlyTheExpectedItemIsFound) {
  const std::string path = volume_.file("file", "x");
  const ItemNumber number = find("file").identity().number;
  EXPECT_EQ(RemovalTarget::find(path, policy_, number).error(), 0);
  EXPECT_EQ(textOf(RemovalTarget::find(path, policy_, ItemNumber{number.device, number.inode + 1})),
            refused(ESTALE));
  EXPECT_EQ(textOf(RemovalTarget::find(path, policy_, ItemNumber{number.device + 1, number.inode})),
            refused(ESTALE));
}

TEST_F(RemovalTargetTest, absentIsWhatIsMissingInAPlaceThatIsSafe) {
  EXPECT_EQ(textOf(find("none")), std::to_string(ENOENT) + " absent");
  EXPECT_EQ(textOf(find("none/below/it")), std::to_string(ENOENT) + " absent");
  volume_.file("file", "x");
  EXPECT_EQ(textOf(find("file/below")), std::to_string(ENOTDIR));
  policy_.protectSubtree(volume_.folder("kept"));
  EXPECT_EQ(textOf(find("kept/none")), refused(EPERM));
  EXPECT_EQ(textOf(find("kept/none/below")), refused(EPERM));
}

TEST_F(RemovalTargetTest, whatLiesInAThirdUsersFolderIsNotTold) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "only root can give files away";
  volume_.file("theirs/file", "x");
  volume_.setOwner("theirs", kThird);
  const RemovalPolicy helper = RemovalPolicy::forHelper(kCaller);
  for (const char* name : {"theirs/file", "theirs/none", "theirs/none/below", "theirs/file/below"}) {
    EXPECT_EQ(textOf(RemovalTarget::find(volume_.path(name), helper)), refused(EPERM)) << name;
  }
}

TEST_F(RemovalTargetTest, theOwnerOfAThirdUsersItemIsKnownWhereTheWayIsOpen) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "only root can give files away";
  volume_.file("foreign", "x");
  volume_.file("theirs/foreign", "x");
  volume_.file("mine", "x");
  for (const char* name : {"foreign", "theirs/foreign", "theirs"}) volume_.setOwner(name, kThird);
  const RemovalPolicy helper = RemovalPolicy::forHelper(kCaller);
  const auto strangerOf = [&](const char* name) {
    return RemovalTarget::find(volume_.path(name), helper).stranger();
  };
  EXPECT_EQ(strangerOf("foreign"), std::optional<std::uint32_t>(kThird));
  EXPECT_EQ(strangerOf("theirs/foreign"), std::nullopt);
  EXPECT_EQ(strangerOf("mine"), std::nullopt);
}

TEST_F(RemovalTargetTest, anEntryOfTheTopStays) {
  for (const auto& entry : std::filesystem::directory_iterator("/")) {
    EXPECT_TRUE(RemovalTarget::find(entry.path(), policy_).isRefused()) << entry.path();
  }
}

TEST_F(RemovalTargetTest, aPathThatIsNotNormalIsNotLookedAt) {
  for (const char* path : {"", ".", "/", "//", "/..", "relative", "/tmp/../x", "/tmp//x", "/tmp/"}) {
    EXPECT_EQ(textOf(RemovalTarget::find(path, policy_)), refused(EINVAL)) << path;
  }
}

TEST_F(RemovalTargetTest, aMountThatIsNotTrustedIsRefused) {
  volume_.file("file", "x");
  const unsigned caller = ::geteuid();
  const RemovalPolicy none = RemovalPolicy::forHelper(caller, [](std::uint64_t) { return false; });
  EXPECT_EQ(textOf(RemovalTarget::find(volume_.path("file"), none)), refused(EPERM));
  std::uint64_t asked = 0;
  const RemovalPolicy every = RemovalPolicy::forHelper(caller, [&asked](std::uint64_t mount) {
    asked = mount;
    return true;
  });
  const RemovalTarget target = RemovalTarget::find(volume_.path("file"), every);
  EXPECT_EQ(target.error(), 0);
  EXPECT_EQ(asked, target.identity().mount);
}

/// Runs work in a child with a folder "silent" that never answers and may not be entered.
std::string besideSilence(const test::TemporaryVolume& volume,
                          const std::function<std::string(RemovalPolicy)>& work) {
  return test::inMountingChild([&]() -> std::string {
    const FileDescriptor server = test::mountSilentFileSystem(volume.folder("top/silent"));
    if (!server.isOpen()) return "skip";
    const FileDescriptor point(::open(volume.path("top/silent").c_str(), O_PATH | O_CLOEXEC));
    const std::uint64_t silent = mountOf(point.get()).value_or(0);
    return work(RemovalPolicy::forHelper(0, [silent](std::uint64_t mount) { return mount != silent; }));
  });
}

TEST_F(RemovalTargetTest, aFileSystemThatMayNotBeEnteredIsNotAsked) {
  const std::string told = besideSilence(volume_, [&](const RemovalPolicy& policy) {
    return textOf(RemovalTarget::find(volume_.path("top/silent/file"), policy)) + ", " +
           textOf(RemovalTarget::find(volume_.path("top/silent"), policy));
  });
  if (told == "skip") GTEST_SKIP() << "no file system can be mounted here";
  EXPECT_EQ(told, refused(EPERM) + ", " + refused(EBUSY));
}

TEST_F(RemovalTargetTest, aMountedFileSystemIsNotAskedWhereTheSystemDoesNotHaveOpenat2Either) {
  for (const int error : {ENOSYS, EPERM}) {
    const std::string told = besideSilence(volume_, [&](const RemovalPolicy& policy) -> std::string {
      if (!test::takeAwayOpenat2(error)) return "no filter";
      return textOf(RemovalTarget::find(volume_.path("top/silent"), policy));
    });
    if (told == "skip") GTEST_SKIP() << "no file system can be mounted here";
    EXPECT_EQ(told, refused(EBUSY)) << error;
  }
}

TEST_F(RemovalTargetTest, whatIsMountedIsRefusedAlsoInItsOwnFileSystemAndOnAFile) {
  volume_.folder("folder");
  volume_.folder("itself");
  volume_.file("file", "x");
  volume_.file("precious/file", "x");
  const auto told = [&](int missing) {
    return test::inMountingChild([&]() -> std::string {
      const auto bind = [&](const char* from, const char* on) {
        return ::mount(volume_.path(from).c_str(), volume_.path(on).c_str(), nullptr, MS_BIND, nullptr) == 0;
      };
      if (!bind("precious", "folder") || !bind("precious/file", "file") || !bind("itself", "itself"))
        return "skip";
      if (missing != 0 && !test::takeAwayOpenat2(missing)) return "no filter";
      std::string texts;
      for (const char* name : {"folder", "file", "itself", "folder/file"})
        texts += textOf(RemovalTarget::find(volume_.path(name), policy_)) + ", ";
      return texts;
    });
  };
  if (told(0) == "skip") GTEST_SKIP() << "no right to mount";
  const std::string busy = refused(EBUSY) + ", ";
  for (const int missing : {0, ENOSYS, EPERM})
    EXPECT_EQ(told(missing), busy + busy + busy + "0, ") << missing;
}

TEST_F(RemovalTargetTest, aListedPlaceInAFileSystemThatMayNotBeEnteredIsNotAsked) {
  const std::string told = besideSilence(volume_, [&](RemovalPolicy policy) {
    policy.protectSubtree(volume_.path("top/silent/place"));
    return std::string("done");
  });
  if (told == "skip") GTEST_SKIP() << "no file system can be mounted here";
  EXPECT_EQ(told, "done");
}

// Consequences for a removal.

namespace fs = std::filesystem;

using test::isThere;
using test::textOf;

class RefusedRemoval : public test::RemovalStage {};

TEST_F(RefusedRemoval, fenceEndsAProcessThatRemoves) {
  const std::string file = volume_.file("file", "x");
  EXPECT_EQ(behindFence(file), "ended by signal " + std::to_string(SIGSYS));
  EXPECT_TRUE(isThere(file));
  EXPECT_EQ(behindFence(volume_.folder("folder")), "ended by signal " + std::to_string(SIGSYS));
}

TEST_F(RefusedRemoval, refuses_root_by_every_alias) {
  volume_.link("link", "/");
  const std::string bind = volume_.folder("bind");
  const std::string work = volume_.folder("work/current");
  const std::string told = test::inMountingChild([&]() -> std::string {
    const bool isBound = ::mount("/", bind.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0;
    if (::chdir(work.c_str()) != 0) return "no current folder";
    const RemovalPolicy policy = RemovalPolicy::forUser();
    if (!test::raiseFence()) return "no fence";
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

TEST_F(RefusedRemoval, refusesAHomeAndItsParentsAndTakesWhatLiesInIt) {
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

TEST_F(RefusedRemoval, refusesAHomeBehindABindMount) {
  volume_.file("homes/carol/file", "x");
  const std::string bind = volume_.folder("bind");
  policy_.protectSelfAndAncestors(volume_.path("homes/carol"));
  const std::string told = test::inMountingChild([&]() -> std::string {
    if (::mount(volume_.path("homes").c_str(), bind.c_str(), nullptr, MS_BIND, nullptr) != 0) return "skip";
    return test::raiseFence() ? textOf(removeItem(bind + "/carol", policy_)) : "no fence";
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, std::to_string(EPERM) + " refused");
}

TEST_F(RefusedRemoval, refusesEverythingInAProtectedSubtreeButTheException) {
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

TEST_F(RefusedRemoval, refusesEverythingWhileAProtectedPlaceIsUnknown) {
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

TEST_F(RefusedRemoval, protectedPlaceThatWasMovedIntoTheTreeStays) {
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

TEST_F(RefusedRemoval, refusesALinkAboveTheItemThatSomebodyElseOwns) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "only root can give links away";
  volume_.file("real/file", "x");
  volume_.link("link", "real");
  volume_.setOwner("link", test::kPlainUser);
  EXPECT_EQ(behindFence(volume_.path("link/file")), std::to_string(ELOOP) + " refused");
  EXPECT_TRUE(remove("link").isSuccess());
}

TEST_F(RefusedRemoval, helperTakesOnlyWhatRootOrTheCallerOwns) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "only root can give files away";
  const RemovalPolicy policy = RemovalPolicy::forHelper(kCaller);
  volume_.file("mine", "x");
  volume_.file("roots", "x");
  volume_.file("foreign", "x");
  volume_.file("folder/foreign", "x");
  volume_.file("folder/mine", "x");
  volume_.file("theirs/mine", "x");
  for (const char* name : {"sticky/mine", "sticky/roots", "shared/mine", "shared/roots", "shared/foreign"}) {
    volume_.file(name, "x");
  }
  for (const char* name : {"mine", "folder/mine", "theirs/mine", "sticky/mine", "shared/mine"}) {
    volume_.setOwner(name, kCaller);
  }
  for (const char* name : {"foreign", "folder/foreign", "theirs", "sticky", "shared/foreign"}) {
    volume_.setOwner(name, kThird);
  }
  for (const char* name : {"sticky", "shared"}) volume_.setMode(name, 01777);
  const auto told = [&](const char* name) { return textOf(removeItem(volume_.path(name), policy)); };
  const std::string refused = std::to_string(EPERM) + " refused";
  EXPECT_EQ(told("mine"), "0");
  EXPECT_EQ(told("roots"), "0");
  EXPECT_EQ(told("foreign"), refused);
  EXPECT_EQ(told("theirs/mine"), refused);
  EXPECT_EQ(told("theirs/none"), refused);
  EXPECT_EQ(told("sticky/mine"), refused) << "its owner may put another item there";
  EXPECT_EQ(told("sticky/roots"), refused);
  EXPECT_EQ(told("shared/mine"), "0");
  EXPECT_EQ(told("shared/roots"), "0");
  EXPECT_EQ(told("shared/foreign"), refused);
  EXPECT_EQ(told("sticky/none"), refused);
  EXPECT_EQ(told("folder"), refused);
  EXPECT_TRUE(isThere(volume_.path("folder/foreign")));
  EXPECT_FALSE(isThere(volume_.path("folder/mine")));
  EXPECT_TRUE(isThere(volume_.path("foreign")));
}

TEST_F(RefusedRemoval, helperTellsNothingOfWhatLiesOnAForbiddenWay) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "only root can give files away";
  RemovalPolicy policy = RemovalPolicy::forHelper(kCaller);
  volume_.file("theirs/folder/file", "x");
  volume_.setOwner("theirs", kThird);
  volume_.link("theirs/link", "folder");
  volume_.setOwner("theirs/link", kThird);
  volume_.folder("system");
  policy.protectSubtree(volume_.path("system"));
  const std::string refused = std::to_string(EPERM) + " refused";
  for (const char* name : {"theirs/none/file", "theirs/folder/file", "theirs/folder/file/file",
                           "theirs/link/file", "system/none/file"}) {
    EXPECT_EQ(textOf(removeItem(volume_.path(name), policy)), refused) << name;
  }
  EXPECT_EQ(textOf(removeItem(volume_.path("none/file"), policy)), std::to_string(ENOENT) + " absent");
}

TEST_F(RefusedRemoval, helperFollowsNoLinkOfTheCaller) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "only root can give links away";
  volume_.file("real/file", "x");
  volume_.link("link", "real");
  volume_.setOwner("link", kCaller);
  const RemovalPolicy policy = RemovalPolicy::forHelper(kCaller);
  EXPECT_EQ(textOf(removeItem(volume_.path("link/file"), policy)), std::to_string(ELOOP) + " refused");
  EXPECT_TRUE(isThere(volume_.path("real/file")));
}

}  // namespace
}  // namespace sorrel
