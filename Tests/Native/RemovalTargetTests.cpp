#include "SorrelFramework/Native/RemovalTarget.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string>

#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/SilentFileSystem.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

constexpr unsigned kCaller = 10001;
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
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give files away";
  volume_.file("theirs/file", "x");
  volume_.setOwner("theirs", kThird);
  const RemovalPolicy helper = RemovalPolicy::forHelper(kCaller);
  for (const char* name : {"theirs/file", "theirs/none", "theirs/none/below", "theirs/file/below"}) {
    EXPECT_EQ(textOf(RemovalTarget::find(volume_.path(name), helper)), refused(EPERM)) << name;
  }
}

TEST_F(RemovalTargetTest, aPathThatIsNotNormalIsNotLookedAt) {
  for (const char* path : {"", ".", "/", "//", "/..", "relative", "/tmp/../x", "/tmp//x", "/tmp/"}) {
    EXPECT_EQ(textOf(RemovalTarget::find(path, policy_)), refused(EINVAL)) << path;
  }
}

TEST_F(RemovalTargetTest, aMountThatIsNotTrustedIsRefused) {
  volume_.file("file", "x");
  const RemovalPolicy none = RemovalPolicy::forHelper(0, [](std::uint64_t) { return false; });
  EXPECT_EQ(textOf(RemovalTarget::find(volume_.path("file"), none)), refused(EPERM));
  std::uint64_t asked = 0;
  const RemovalPolicy every = RemovalPolicy::forHelper(0, [&asked](std::uint64_t mount) {
    asked = mount;
    return true;
  });
  const RemovalTarget target = RemovalTarget::find(volume_.path("file"), every);
  EXPECT_EQ(target.error(), 0);
  EXPECT_EQ(asked, target.identity().mount);
}

/// Work in a child on a folder "silent" that never answers, which may not be entered.
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

TEST_F(RemovalTargetTest, aListedPlaceInAFileSystemThatMayNotBeEnteredIsNotAsked) {
  const std::string told = besideSilence(volume_, [&](RemovalPolicy policy) {
    policy.protectSubtree(volume_.path("top/silent/place"));
    return std::string("done");
  });
  if (told == "skip") GTEST_SKIP() << "no file system can be mounted here";
  EXPECT_EQ(told, "done");
}

}  // namespace
}  // namespace sorrel
