#include "SorrelFramework/Platform/Files/FolderStack.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/ProcessState.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

constexpr int kDeep = 100;

class FolderStackTest : public testing::Test {
 protected:
  void start(const std::string& path) {
    stack_.pushRoot(FileDescriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
  }
  void goDown(int count) {
    for (int i = 0; i < count; ++i) ASSERT_TRUE(stack_.push("d")) << i;
  }
  /// Path of the folder `level` levels below the root.
  [[nodiscard]] std::string levelPath(int level) const {
    std::string path = volume_.path("top");
    for (int i = 0; i < level; ++i) path += "/d";
    return path;
  }

  test::TemporaryVolume volume_;
  FolderStack stack_;
};

TEST_F(FolderStackTest, goesDownAndUp) {
  volume_.folder("top/d");
  start(volume_.path("top"));
  EXPECT_EQ(stack_.depth(), 1U);
  goDown(1);
  EXPECT_EQ(stack_.depth(), 2U);
  EXPECT_EQ(statusOf(stack_.top())->inode, statusOf(levelPath(1))->inode);
  EXPECT_TRUE(stack_.pop());
  EXPECT_EQ(statusOf(stack_.top())->inode, statusOf(levelPath(0))->inode);
  EXPECT_FALSE(stack_.pop());
  EXPECT_EQ(stack_.depth(), 0U);
}

TEST_F(FolderStackTest, failedPushChangesNothing) {
  volume_.file("top/file", "");
  start(volume_.path("top"));
  const int top = stack_.top();
  EXPECT_FALSE(stack_.push("none"));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(stack_.push("file"));
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_EQ(stack_.depth(), 1U);
  EXPECT_EQ(stack_.top(), top);
}

TEST_F(FolderStackTest, openFoldersDoNotGrowWithTheDepth) {
  volume_.chain("top", "d", kDeep);
  const std::size_t before = test::openDescriptors();
  start(volume_.path("top"));
  goDown(kDeep);
  EXPECT_LE(test::openDescriptors(), before + FolderStack::kMostOpen + 1);
}

TEST_F(FolderStackTest, findsEveryFolderAgainOnTheWayBack) {
  volume_.chain("top", "d", kDeep);
  start(volume_.path("top"));
  goDown(kDeep);
  for (int level = kDeep - 1; level >= 0; --level) {
    ASSERT_TRUE(stack_.pop()) << level;
    EXPECT_EQ(statusOf(stack_.top())->inode, statusOf(levelPath(level))->inode);
  }
}

TEST_F(FolderStackTest, folderMovedElsewhereDoesNotLeadTheWayUpAstray) {
  volume_.chain("top", "d", kDeep);
  volume_.folder("elsewhere");
  start(volume_.path("top"));
  goDown(kDeep);
  constexpr int moved = 50;
  std::filesystem::rename(levelPath(moved), volume_.path("elsewhere/d"));
  for (int level = kDeep - 1; level >= moved; --level) ASSERT_TRUE(stack_.pop()) << level;
  EXPECT_EQ(statusOf(stack_.top())->inode, statusOf(volume_.path("elsewhere/d"))->inode);
  for (int level = moved - 1; level >= 0; --level) {
    ASSERT_TRUE(stack_.pop()) << level;
    EXPECT_EQ(statusOf(stack_.top())->inode, statusOf(levelPath(level))->inode);
  }
}

TEST_F(FolderStackTest, folderThatIsGoneIsPassedOverOnTheWayUp) {
  volume_.chain("top", "d", kDeep);
  volume_.folder("elsewhere");
  start(volume_.path("top"));
  goDown(kDeep);
  std::filesystem::rename(levelPath(60), volume_.path("elsewhere/d"));
  std::filesystem::rename(levelPath(50), volume_.path("elsewhere/e"));
  for (int level = kDeep - 1; level >= 60; --level) ASSERT_TRUE(stack_.pop()) << level;
  for (int level = 59; level >= 50; --level) {
    EXPECT_FALSE(stack_.pop()) << level;
    EXPECT_EQ(stack_.top(), -1);
  }
  for (int level = 49; level >= 0; --level) ASSERT_TRUE(stack_.pop()) << level;
  EXPECT_EQ(statusOf(stack_.top())->inode, statusOf(levelPath(0))->inode);
}

TEST_F(FolderStackTest, anotherFolderOfThatNameDoesNotCount) {
  volume_.chain("top", "d", kDeep);
  volume_.folder("elsewhere");
  start(volume_.path("top"));
  goDown(kDeep);
  std::filesystem::rename(levelPath(50), volume_.path("elsewhere/d"));
  std::filesystem::rename(levelPath(49), volume_.path("elsewhere/e"));
  std::filesystem::create_directory(levelPath(49));
  for (int level = kDeep - 1; level >= 50; --level) ASSERT_TRUE(stack_.pop()) << level;
  EXPECT_FALSE(stack_.pop());
  EXPECT_TRUE(stack_.pop());
  EXPECT_EQ(statusOf(stack_.top())->inode, statusOf(levelPath(48))->inode);
}

TEST_F(FolderStackTest, oneDescriptorBesideTheRootIsEnough) {
  volume_.chain("top", "d", kDeep);
  const std::string told = test::inChild([this]() -> std::string {
    start(volume_.path("top"));
    if (!test::leaveDescriptors(1)) return "no limit";
    for (int i = 0; i < kDeep; ++i) {
      if (!stack_.push("d")) return "stopped going down at " + std::to_string(i);
    }
    for (int level = kDeep - 1; level >= 0; --level) {
      if (!stack_.pop()) return "stopped going up at " + std::to_string(level);
      if (statusOf(stack_.top())->inode != statusOf(levelPath(level))->inode) return "went astray";
    }
    return "there and back";
  });
  EXPECT_EQ(told, "there and back");
}

TEST_F(FolderStackTest, withoutAFreeDescriptorItGoesNeitherDownNorAstray) {
  volume_.chain("top", "d", 1);
  const std::string told = test::inChild([this]() -> std::string {
    start(volume_.path("top"));
    if (!test::leaveDescriptors(0)) return "no limit";
    if (stack_.push("d")) return "went down";
    return errno == EMFILE && stack_.depth() == 1 && stack_.top() >= 0 ? "stayed" : "lost";
  });
  EXPECT_EQ(told, "stayed");
}

TEST_F(FolderStackTest, clearClosesEverything) {
  volume_.chain("top", "d", 10);
  const std::size_t before = test::openDescriptors();
  start(volume_.path("top"));
  goDown(10);
  stack_.clear();
  EXPECT_EQ(stack_.depth(), 0U);
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(FolderStackTest, atGivesTheOpenFoldersAndMinusOneForClosedOnes) {
  volume_.chain("top", "d", kDeep);
  start(volume_.path("top"));
  goDown(kDeep);
  EXPECT_EQ(stack_.at(static_cast<std::size_t>(kDeep)), stack_.top());
  EXPECT_EQ(stack_.at(static_cast<std::size_t>(kDeep) / 2), -1);
}

}  // namespace
}  // namespace sorrel
