#include "SorrelFramework/Platform/Machine/ScanRoot.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>

#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

/// A volume, and beside it a folder that does not belong to it.
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

TEST_F(OpenFolder, absoluteLinkBeginsAtTheRootOfTheVolume) {
  volume_.link("Users/alice/link", "/Users/alice/real");
  const FileDescriptor folder = open("Users/alice/link");
  ASSERT_TRUE(folder.isOpen());
  EXPECT_EQ(statusOf(folder.get())->inode, inodeOf("Users/alice/real"));
}

TEST_F(OpenFolder, absoluteLinkDoesNotLeadToThisMachine) {
  volume_.link("Users/alice/link", outside_.path("secret"));
  EXPECT_FALSE(open("Users/alice/link").isOpen());
  EXPECT_EQ(errno, ENOENT);
  volume_.link("Users/bob", outside_.path());
  EXPECT_FALSE(open("Users/bob/secret").isOpen());
}

TEST_F(OpenFolder, nothingClimbsAboveTheRootOfTheVolume) {
  volume_.link("Users/alice/link", "../../../..");
  for (const char* const name : {"Users/alice/link", "Users/../../.."}) {
    const FileDescriptor folder = open(name);
    ASSERT_TRUE(folder.isOpen()) << name;
    EXPECT_EQ(statusOf(folder.get())->inode, statusOf(volume_.path())->inode) << name;
  }
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

}  // namespace
}  // namespace sorrel
