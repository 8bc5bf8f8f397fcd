#include "SorrelFramework/Removal/PathWalk.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "Tests/Support/ProcessState.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

bool everybody(std::uint32_t /*owner*/) { return true; }
bool nobody(std::uint32_t /*owner*/) { return false; }

std::uint64_t inodeOf(const std::string& path) { return statusOf(path)->inode; }

class PathWalkTest : public testing::Test {
 protected:
  PathWalkTest() { volume_.file("a/b/file", "x"); }
  [[nodiscard]] PathWalk to(std::string_view name, const PathWalk::LinkTrust& trust = everybody) const {
    return PathWalk::toParentOf(volume_.path(name), trust);
  }

  test::TemporaryVolume volume_;
};

TEST_F(PathWalkTest, endsInTheFolderAboveTheLeaf) {
  const PathWalk walk = to("a/b/file", nobody);
  ASSERT_EQ(walk.error(), 0);
  EXPECT_EQ(statusOf(walk.end())->inode, inodeOf(volume_.path("a/b")));
  EXPECT_EQ(walk.leaf(), "file");
}

TEST_F(PathWalkTest, collectsEveryFolderFromTheTop) {
  const PathWalk walk = to("a/b/file");
  ASSERT_EQ(walk.error(), 0);
  std::string path = volume_.path("a/b");
  for (auto item = walk.chain().rbegin(); item != walk.chain().rend(); ++item) {
    const auto status = statusOf(path);
    EXPECT_EQ(item->number, (ItemNumber{status->device, status->inode})) << path;
    EXPECT_EQ(item->uid, status->uid);
    EXPECT_EQ(item->mode, status->mode);
    path = std::filesystem::path(path).parent_path();
  }
  EXPECT_EQ(walk.chain().front().number.inode, inodeOf("/"));
  EXPECT_EQ(walk.chain().size(), walk.passed().size());
}

TEST_F(PathWalkTest, neverLooksAtTheLeaf) {
  volume_.link("a/link", "b");
  const PathWalk walk = to("a/link", nobody);
  ASSERT_EQ(walk.error(), 0);
  EXPECT_EQ(walk.leaf(), "link");
  EXPECT_EQ(to("a/none").error(), 0);
}

TEST_F(PathWalkTest, followsALinkAboveTheLeafIfItsOwnerIsTrusted) {
  volume_.link("link", "a/b");
  std::uint32_t asked = 77;
  const PathWalk walk = to("link/file", [&asked](std::uint32_t owner) {
    asked = owner;
    return true;
  });
  ASSERT_EQ(walk.error(), 0);
  EXPECT_EQ(asked, ::geteuid());
  EXPECT_EQ(statusOf(walk.end())->inode, inodeOf(volume_.path("a/b")));
  EXPECT_EQ(walk.chain()[walk.chain().size() - 2].number.inode, inodeOf(volume_.path("a")));
  EXPECT_TRUE(walk.passed()[walk.passed().size() - 3].isLink());
}

TEST_F(PathWalkTest, refusesALinkWhoseOwnerIsNotTrusted) {
  volume_.link("link", "a/b");
  const PathWalk walk = to("link/file", nobody);
  EXPECT_EQ(walk.error(), ELOOP);
  EXPECT_TRUE(walk.isRefused());
  EXPECT_EQ(walk.end(), -1);
}

TEST_F(PathWalkTest, absoluteLinkStartsAgainFromTheTop) {
  volume_.link("a/link", volume_.path("a/b"));
  const PathWalk walk = to("a/link/file");
  ASSERT_EQ(walk.error(), 0);
  EXPECT_EQ(statusOf(walk.end())->inode, inodeOf(volume_.path("a/b")));
  EXPECT_EQ(walk.chain().front().number.inode, inodeOf("/"));
  EXPECT_EQ(walk.chain().back().number.inode, inodeOf(volume_.path("a/b")));
}

TEST_F(PathWalkTest, dotsInALinkLeadUpTheRealFolders) {
  volume_.folder("c/d");
  volume_.link("a/down", "../c/d");
  volume_.link("a/up", "down/../.././/a/b");
  const PathWalk walk = to("a/up/file");
  ASSERT_EQ(walk.error(), 0);
  EXPECT_EQ(statusOf(walk.end())->inode, inodeOf(volume_.path("a/b")));
  EXPECT_EQ(walk.chain()[walk.chain().size() - 3].number.inode, inodeOf(volume_.path()));
}

TEST_F(PathWalkTest, dotsOfALinkLeadBackToTheFolderThatTheWayCameThrough) {
  volume_.file("c/secret", "x");
  volume_.file("a/secret", "x");
  volume_.link("a/b/link", "..");
  // The folder with the link is moved elsewhere after the link was read and before the step up.
  const PathWalk walk = to("a/b/link/secret", [this](std::uint32_t) {
    std::filesystem::rename(volume_.path("a/b"), volume_.path("c/b"));
    return true;
  });
  EXPECT_EQ(walk.error(), ESTALE);
}

TEST_F(PathWalkTest, dotsAboveTheTopStayThere) {
  std::string up;
  for (int i = 0; i < 60; ++i) up += "../";
  volume_.link("a/link", up);
  const PathWalk walk = to("a/link/file");
  ASSERT_EQ(walk.error(), 0);
  EXPECT_EQ(walk.chain().size(), 1U);
  EXPECT_EQ(statusOf(walk.end())->inode, inodeOf("/"));
}

TEST_F(PathWalkTest, followsFortyLinksAndNoMore) {
  volume_.link("link0", "a/b");
  for (int i = 1; i < PathWalk::kMostLinks + 1; ++i) {
    volume_.link("link" + std::to_string(i), "link" + std::to_string(i - 1));
  }
  EXPECT_EQ(to("link39/file").error(), 0);
  EXPECT_EQ(to("link40/file").error(), ELOOP);
  volume_.link("loop", "loop");
  EXPECT_EQ(to("loop/file").error(), ELOOP);
}

TEST_F(PathWalkTest, linksOfProcAreNotFollowed) {
  const PathWalk walk = PathWalk::toParentOf("/proc/self/root/tmp/x", everybody);
  EXPECT_EQ(walk.error(), ELOOP);
  EXPECT_TRUE(walk.isRefused());
}

TEST_F(PathWalkTest, tellsWhyItEnds) {
  EXPECT_EQ(to("none/file").error(), ENOENT);
  EXPECT_EQ(to("a/b/file/below").error(), ENOTDIR);
  EXPECT_EQ(to("a/b/file/below/more").error(), ENOTDIR);
  EXPECT_EQ(to(std::string(256, 'n').append("/file")).error(), ENAMETOOLONG);
  volume_.link("broken", "none");
  EXPECT_EQ(to("broken/file").error(), ENOENT);
  EXPECT_FALSE(to("none/file").isRefused());
}

TEST_F(PathWalkTest, doesNotWaitForAFifo) {
  volume_.fifo("pipe");
  EXPECT_EQ(to("pipe/file").error(), ENOTDIR);
}

TEST_F(PathWalkTest, goesDownPathsLongerThanTheSystemTakes) {
  const std::string deep = volume_.chain("deep", std::string(200, 'd'), 60);
  ASSERT_GT(deep.size(), 12'000U);
  const std::size_t before = test::openDescriptors();
  const PathWalk walk = PathWalk::toParentOf(deep + "/leaf", nobody);
  EXPECT_EQ(walk.error(), 0);
  EXPECT_EQ(test::openDescriptors(), before + 1);
}

TEST_F(PathWalkTest, intoFollowsTheLastComponentToo) {
  volume_.link("link", "a/b/file");
  const PathWalk walk = PathWalk::into(volume_.path("link"), everybody);
  ASSERT_EQ(walk.error(), 0);
  EXPECT_EQ(statusOf(walk.end())->inode, inodeOf(volume_.path("a/b/file")));
  EXPECT_EQ(PathWalk::into("/", nobody).error(), 0);
  EXPECT_EQ(PathWalk::into(volume_.path("none"), nobody).error(), ENOENT);
}

TEST_F(PathWalkTest, aRelativePathHasNoWay) {
  EXPECT_EQ(PathWalk::toParentOf("x", everybody).error(), EINVAL);
}

}  // namespace
}  // namespace sorrel
