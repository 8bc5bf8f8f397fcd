#include "SorrelFramework/Removal/ItemIdentity.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

ItemIdentity identityAt(const std::string& path) {
  const auto identity = identityOf(AT_FDCWD, path.c_str());
  EXPECT_TRUE(identity.has_value()) << path;
  return identity.value_or(ItemIdentity{});
}

TEST(ItemIdentity, isThatOfLstat) {
  const test::TemporaryVolume volume;
  volume.link("link", "/none");
  struct stat status {};
  ASSERT_EQ(::lstat(volume.path("link").c_str(), &status), 0);
  const ItemIdentity identity = identityAt(volume.path("link"));
  EXPECT_EQ(identity.number, (ItemNumber{status.st_dev, status.st_ino}));
  EXPECT_EQ(identity.mode, status.st_mode);
  EXPECT_EQ(identity.uid, status.st_uid);
  EXPECT_TRUE(identity.isLink());
  EXPECT_FALSE(identity.isDirectory());
  EXPECT_FALSE(identity.isMountRoot);
}

TEST(ItemIdentity, twoNamesOfAnItemAreTheSameAndTwoItemsAreNot) {
  const test::TemporaryVolume volume;
  const std::string a = volume.file("a", "x");
  ASSERT_EQ(::link(a.c_str(), volume.path("b").c_str()), 0);
  volume.file("c", "x");
  EXPECT_TRUE(identityAt(a).isSameAs(identityAt(volume.path("b"))));
  EXPECT_FALSE(identityAt(a).isSameAs(identityAt(volume.path("c"))));
}

TEST(ItemIdentity, anotherTypeOrMountIsNotTheSame) {
  ItemIdentity file;
  file.mode = S_IFREG | 0644;
  ItemIdentity other = file;
  other.mode = S_IFREG | 0600;
  EXPECT_TRUE(file.isSameAs(other));
  other.mode = S_IFDIR | 0644;
  EXPECT_FALSE(file.isSameAs(other));
  other = file;
  other.mount = 1;
  EXPECT_FALSE(file.isSameAs(other));
  other = file;
  other.isMountRoot = true;
  EXPECT_FALSE(file.isSameAs(other));
}

TEST(ItemIdentity, whatIsMissingHasNone) {
  const test::TemporaryVolume volume;
  EXPECT_FALSE(identityOf(AT_FDCWD, volume.path("none").c_str()).has_value());
  EXPECT_EQ(errno, ENOENT);
}

TEST(ItemIdentity, bindMountOfTheSameFileSystemShows) {
  const test::TemporaryVolume volume;
  const std::string source = volume.folder("source");
  const std::string point = volume.folder("point");
  const std::string told = test::inMountingChild([&]() -> std::string {
    if (::mount(source.c_str(), point.c_str(), nullptr, MS_BIND, nullptr) != 0) return "skip";
    const auto there = identityOf(AT_FDCWD, source.c_str());
    const auto here = identityOf(AT_FDCWD, point.c_str());
    if (!there || !here) return "no identity";
    if (there->number != here->number) return "another item";
    return here->isMountRoot && !there->isMountRoot && here->mount != there->mount ? "shows" : "hidden";
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, "shows");
}

TEST(ItemIdentity, isNotKnownOnAKernelThatDoesNotKnowMounts) {
  struct statx found {};
  found.stx_mask = STATX_TYPE | STATX_MODE | STATX_UID | STATX_INO | STATX_MNT_ID;
  found.stx_attributes_mask = STATX_ATTR_MOUNT_ROOT;
  EXPECT_TRUE(identityIn(found));
  for (const unsigned missing : {STATX_TYPE, STATX_UID, STATX_INO, STATX_MNT_ID}) {
    struct statx less = found;
    less.stx_mask &= ~missing;
    EXPECT_FALSE(identityIn(less)) << missing;
    EXPECT_EQ(errno, ENOTSUP);
  }
  found.stx_attributes_mask = 0;
  EXPECT_FALSE(identityIn(found));
}

}  // namespace
}  // namespace sorrel
