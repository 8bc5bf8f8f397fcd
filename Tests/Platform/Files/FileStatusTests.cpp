#include "SorrelFramework/Platform/Files/FileStatus.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

using test::operator""_GiB;  // NOLINT(misc-unused-using-decls): clang-tidy overlooks literals
using test::operator""_B;    // NOLINT(misc-unused-using-decls): clang-tidy overlooks literals

FileDescriptor openOf(const std::string& path) {
  return FileDescriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
}

TEST(FileStatus, regularFileTellsSizeOwnerAndTime) {
  const test::TemporaryVolume volume;
  const std::string path = volume.file("a.bin", 1234_B);
  volume.setMode("a.bin", 0640);
  volume.setModified("a.bin", 86400);
  const auto status = statusOf(path);
  ASSERT_TRUE(status);
  EXPECT_TRUE(status->isRegularFile());
  EXPECT_FALSE(status->isDirectory());
  EXPECT_EQ(status->size, 1234);
  EXPECT_EQ(status->mode, static_cast<std::uint32_t>(S_IFREG | 0640));
  EXPECT_EQ(status->uid, ::geteuid());
  EXPECT_EQ(status->modified, Date{86400});
}

TEST(FileStatus, sizeIsTheLengthNotTheRoomOnTheDisk) {
  const test::TemporaryVolume volume;
  EXPECT_EQ(statusOf(volume.file("sparse", 5_GiB))->size, 5368709120);
}

TEST(FileStatus, timesBefore1970AreNegative) {
  const test::TemporaryVolume volume;
  const std::string path = volume.file("old", "");
  volume.setModified("old", -1000);
  EXPECT_EQ(statusOf(path)->modified, Date{-1000});
}

TEST(FileStatus, linkIsLookedAtItself) {
  const test::TemporaryVolume volume;
  volume.folder("target");
  const auto status = statusOf(volume.link("link", "target"));
  ASSERT_TRUE(status);
  EXPECT_FALSE(status->isDirectory());
  EXPECT_FALSE(status->isRegularFile());
  EXPECT_EQ(status->size, 6);
}

TEST(FileStatus, brokenLinkIsThere) {
  const test::TemporaryVolume volume;
  EXPECT_TRUE(statusOf(volume.link("link", "nowhere")));
}

TEST(FileStatus, missingItemGivesNothing) {
  const test::TemporaryVolume volume;
  EXPECT_FALSE(statusOf(volume.path("none")));
  EXPECT_FALSE(statusOf(std::string()));
  EXPECT_FALSE(statusOf(volume.file("a", "") + std::string(1, '\0') + "b"));
  EXPECT_FALSE(statusOf(-1));
}

TEST(FileStatus, threeWaysGiveTheSameItem) {
  const test::TemporaryVolume volume;
  const std::string path = volume.file("folder/a", "x");
  const FileDescriptor folder = openOf(volume.path("folder"));
  const FileDescriptor file = openOf(path);
  const auto byPath = statusOf(path);
  const auto byName = statusOf(folder.get(), "a");
  const auto byFile = statusOf(file.get());
  ASSERT_TRUE(byPath && byName && byFile);
  EXPECT_EQ(byPath->inode, byName->inode);
  EXPECT_EQ(byPath->inode, byFile->inode);
  EXPECT_EQ(byPath->device, byFile->device);
  struct stat usual {};
  ASSERT_EQ(::stat(path.c_str(), &usual), 0);
  EXPECT_EQ(byPath->inode, usual.st_ino);
  EXPECT_EQ(byPath->device, usual.st_dev);
}

TEST(FileStatus, creationDateStaysWhenTheContentChanges) {
  const test::TemporaryVolume volume;
  const std::string path = volume.file("a", "");
  const auto before = statusOf(path);
  if (!before->created) GTEST_SKIP() << "this file system keeps no creation dates";
  volume.setModified("a", 86400);
  EXPECT_EQ(statusOf(path)->created, before->created);
  EXPECT_GT(*before->created, Date{86400});
}

TEST(FileStatus, stickyBitIsSeen) {
  const test::TemporaryVolume volume;
  const std::string path = volume.folder("shared");
  volume.setMode("shared", 0777);
  EXPECT_FALSE(statusOf(path)->isSticky());
  volume.setMode("shared", 01777);
  EXPECT_TRUE(statusOf(path)->isSticky());
}

TEST(FileStatus, fifoIsNotOpened) {
  const test::TemporaryVolume volume;
  const auto status = statusOf(volume.fifo("pipe"));
  ASSERT_TRUE(status);
  EXPECT_FALSE(status->isRegularFile());
  EXPECT_TRUE(S_ISFIFO(status->mode));
}

}  // namespace
}  // namespace sorrel
