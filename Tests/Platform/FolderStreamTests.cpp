#include "SorrelFramework/Platform/FolderStream.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "SorrelFramework/Platform/FileStatus.hpp"
#include "SorrelFramework/Platform/Host.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

FileDescriptor plainOpen(const std::string& path) {
  return FileDescriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

std::vector<std::string> sortedNames(FolderStream& stream, int folder) {
  std::vector<std::string> names;
  stream.start(folder);
  while (const FolderStream::Entry* entry = stream.next()) names.emplace_back(entry->name, entry->length);
  std::sort(names.begin(), names.end());
  return names;
}

TEST(FolderStream, givesEveryEntryButTheDots) {
  const test::TemporaryVolume volume;
  volume.file("top/.hidden", "");
  volume.file("top/...", "");
  volume.file("top/a", "");
  volume.folder("top/b");
  const FileDescriptor folder = plainOpen(volume.path("top"));
  FolderStream stream;
  EXPECT_EQ(sortedNames(stream, folder.get()), (std::vector<std::string>{"...", ".hidden", "a", "b"}));
  EXPECT_EQ(stream.error(), 0);
}

TEST(FolderStream, readsMoreEntriesThanOneCallHolds) {
  const test::TemporaryVolume volume;
  constexpr int count = 1000;
  for (int i = 0; i < count; ++i) volume.file("top/" + std::string(60, 'n') + std::to_string(i), "");
  const FileDescriptor folder = plainOpen(volume.path("top"));
  FolderStream stream;
  const auto names = sortedNames(stream, folder.get());
  EXPECT_EQ(names.size(), static_cast<std::size_t>(count));
  EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());
}

TEST(FolderStream, tellsFoldersFromOtherItems) {
  const test::TemporaryVolume volume;
  volume.folder("top/folder");
  volume.link("top/link", "folder");
  const FileDescriptor folder = plainOpen(volume.path("top"));
  FolderStream stream;
  stream.start(folder.get());
  while (const FolderStream::Entry* entry = stream.next()) {
    if (entry->type == FolderStream::Type::Unknown) GTEST_SKIP() << "this file system does not say";
    const bool isFolder = std::string(entry->name) == "folder";
    EXPECT_EQ(entry->type, isFolder ? FolderStream::Type::Directory : FolderStream::Type::Other)
        << entry->name;
  }
}

TEST(FolderStream, errorEndsTheListingAndAnotherStartForgetsIt) {
  const test::TemporaryVolume volume;
  volume.file("top/a", "");
  const FileDescriptor file(::open(volume.path("top/a").c_str(), O_RDONLY | O_CLOEXEC));
  const FileDescriptor folder = plainOpen(volume.path("top"));
  FolderStream stream;
  EXPECT_TRUE(sortedNames(stream, file.get()).empty());
  EXPECT_EQ(stream.error(), ENOTDIR);
  EXPECT_EQ(sortedNames(stream, folder.get()), std::vector<std::string>{"a"});
  EXPECT_EQ(stream.error(), 0);
}

/// A volume beside which lies a folder that is none of its business.
class OpenFolder : public testing::Test {
 protected:
  OpenFolder() {
    outside_.folder("secret");
    volume_.folder("Users/alice/real");
    volume_.install();
  }
  [[nodiscard]] FileDescriptor open(std::string_view name) const { return openFolder(volume_.path(name)); }
  [[nodiscard]] std::uint64_t inodeOf(std::string_view name) const {
    return statusOf(volume_.path(name))->inode;
  }

  test::TemporaryVolume volume_;
  test::TemporaryFolder outside_;
};

TEST_F(OpenFolder, opensTheRootOfTheVolumeItself) {
  const FileDescriptor folder = openFolder(volume_.path());
  ASSERT_TRUE(folder.isOpen());
  EXPECT_EQ(statusOf(folder.get())->inode, statusOf(volume_.path())->inode);
}

TEST_F(OpenFolder, followsALinkThatStaysBelowTheRoot) {
  volume_.link("Users/alice/link", "../../Users/alice/real");
  const FileDescriptor folder = open("Users/alice/link");
  ASSERT_TRUE(folder.isOpen());
  EXPECT_EQ(statusOf(folder.get())->inode, inodeOf("Users/alice/real"));
}

TEST_F(OpenFolder, refusesAnAbsoluteLinkOutOfTheVolume) {
  volume_.link("Users/alice/link", outside_.path("secret"));
  EXPECT_FALSE(open("Users/alice/link").isOpen());
  EXPECT_EQ(errno, EXDEV);
}

TEST_F(OpenFolder, refusesALinkThatClimbsOutOfTheVolume) {
  volume_.link("Users/alice/link", "../../../..");
  EXPECT_FALSE(open("Users/alice/link").isOpen());
  EXPECT_EQ(errno, EXDEV);
}

TEST_F(OpenFolder, refusesALinkOutOfTheVolumeInMidPath) {
  volume_.link("Users/bob", outside_.path());
  EXPECT_FALSE(open("Users/bob/secret").isOpen());
  EXPECT_FALSE(open("Users/../../..").isOpen());
}

TEST_F(OpenFolder, doesNotTakeANeighbourForAPartOfTheVolume) {
  const test::TemporaryFolder parent;
  parent.folder("volume");
  parent.folder("volume2/real");
  ASSERT_EQ(::symlink(outside_.path("secret").c_str(), parent.path("volume2/link").c_str()), 0);
  Host::install(Host::macVolume(parent.path("volume"), "alice", {}));
  EXPECT_TRUE(openFolder(parent.path("volume2/real")).isOpen());
  EXPECT_TRUE(openFolder(parent.path("volume2/link")).isOpen());
}

TEST_F(OpenFolder, followsAnyLinkOnTheDesktop) {
  volume_.link("link", outside_.path("secret"));
  Host::install(Host::linuxDesktop({}));
  EXPECT_TRUE(open("link").isOpen());
}

TEST_F(OpenFolder, tellsWhyItFails) {
  volume_.file("Users/alice/file", "");
  volume_.fifo("Users/alice/pipe");
  volume_.link("Users/alice/loop", "loop");
  const auto errorOf = [this](std::string_view name) { return open(name).isOpen() ? 0 : errno; };
  EXPECT_EQ(errorOf("Users/none"), ENOENT);
  EXPECT_EQ(errorOf("Users/alice/file"), ENOTDIR);
  EXPECT_EQ(errorOf("Users/alice/pipe"), ENOTDIR);
  EXPECT_EQ(errorOf("Users/alice/loop"), ELOOP);
}

TEST_F(OpenFolder, pathWithANULNamesNothing) {
  EXPECT_FALSE(openFolder(volume_.path("Users") + std::string(1, '\0') + "/alice").isOpen());
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(OpenFolder, isClosedOnExec) {
  const FileDescriptor folder = open("Users/alice");
  EXPECT_EQ(::fcntl(folder.get(), F_GETFD), FD_CLOEXEC);
}

TEST_F(OpenFolder, belowAFolderNoLinkIsFollowed) {
  volume_.link("Users/alice/link", "real");
  const FileDescriptor home = open("Users/alice");
  EXPECT_TRUE(openFolderIn(home.get(), "real").isOpen());
  EXPECT_FALSE(openFolderIn(home.get(), "link").isOpen());
  EXPECT_TRUE(errno == ELOOP || errno == ENOTDIR) << errno;
}

TEST_F(OpenFolder, belowAFolderAFifoIsNotWaitedFor) {
  volume_.fifo("Users/alice/pipe");
  const FileDescriptor home = open("Users/alice");
  EXPECT_FALSE(openFolderIn(home.get(), "pipe").isOpen());
  EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(OpenFolder, belowAFolderAForeignMountIsNotEntered) {
  const std::string point = volume_.folder("Users/alice/mount");
  const std::string told = test::inMountingChild([&]() -> std::string {
    if (::mount("tmpfs", point.c_str(), "tmpfs", 0, nullptr) != 0) return "skip";
    const FileDescriptor home = open("Users/alice");
    const bool entered = openFolderIn(home.get(), "mount").isOpen();
    return entered ? "entered" : std::to_string(errno);
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, std::to_string(EXDEV));
}

TEST_F(OpenFolder, belowAFolderAnotherPlaceOfTheSameFileSystemIsNotEntered) {
  const std::string point = volume_.folder("Users/alice/mount");
  const std::string source = volume_.path("Users/alice/real");
  const std::string told = test::inMountingChild([&]() -> std::string {
    if (::mount(source.c_str(), point.c_str(), nullptr, MS_BIND, nullptr) != 0) return "skip";
    const FileDescriptor home = open("Users/alice");
    const bool entered = openFolderIn(home.get(), "mount").isOpen();
    return entered ? "entered" : std::to_string(errno);
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, std::to_string(EXDEV));
}

}  // namespace
}  // namespace sorrel
