#include "SorrelFramework/Removal/OwnerRights.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Removal/FolderRemoval.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/RemovalKit.hpp"

namespace sorrel {
namespace {

/// Folders of a user without privileges, who removes them in a child process.
class OwnerRights : public test::RemovalStage {
 protected:
  OwnerRights() { volume_.setMode("", 0777); }

  /// Gives these items to the plain user, then sets their modes.
  void close(std::initializer_list<std::pair<const char*, mode_t>> folders) const {
    for (const auto& [name, mode] : folders) {
      if (::geteuid() == 0) volume_.setOwner(name, test::kPlainUser);
      volume_.setMode(name, mode);
    }
  }
  [[nodiscard]] mode_t modeOf(const std::string& name) const {
    const auto status = statusOf(volume_.path(name));
    return status ? status->mode & 07777U : 0;
  }
  [[nodiscard]] std::string removeAsUser(const std::string& name, bool opens = true) const {
    return test::inPlainChild([&] {
      RemovalPolicy policy = RemovalPolicy::forUser();
      if (opens) policy.openOwnFolders();
      return test::textOf(removeItem(volume_.path(name), policy));
    });
  }
};

TEST_F(OwnerRights, readOnlyTreeOfTheUserGoes) {
  volume_.file("cache/module/sub/file", "x");
  volume_.folder("cache/module/empty");
  close({{"cache/module/sub", 0555}, {"cache/module/empty", 0555}, {"cache/module", 0555}, {"cache", 0755}});
  EXPECT_EQ(removeAsUser("cache", false), std::to_string(EACCES));
  EXPECT_EQ(modeOf("cache/module"), 0555U);
  EXPECT_EQ(removeAsUser("cache"), "0");
  EXPECT_FALSE(test::isThere(volume_.path("cache")));
}

TEST_F(OwnerRights, folderThatItsOwnerMayNotEvenListGoes) {
  for (const mode_t mode : {0000U, 0111U, 0222U, 0333U, 0444U, 0666U}) {
    volume_.file("top/closed/file", "x");
    close({{"top/closed", mode}, {"top", 0700}});
    EXPECT_EQ(removeAsUser("top"), "0") << mode;
    EXPECT_FALSE(test::isThere(volume_.path("top"))) << mode;
  }
}

TEST_F(OwnerRights, folderThatHoldsTheItemIsNotOpened) {
  volume_.file("Documents/file", "x");
  volume_.folder("Documents/folder");
  close({{"Documents/file", 0644}, {"Documents/folder", 0755}, {"Documents", 0555}});
  EXPECT_EQ(removeAsUser("Documents/file"), std::to_string(EACCES));
  EXPECT_EQ(removeAsUser("Documents/folder"), std::to_string(EACCES));
  EXPECT_TRUE(test::isThere(volume_.path("Documents/file")));
  EXPECT_TRUE(test::isThere(volume_.path("Documents/folder")));
  EXPECT_EQ(modeOf("Documents"), 0555U);
}

TEST_F(OwnerRights, folderThatStaysGetsItsModeBack) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "only root can give files away";
  volume_.file("top/kept/foreign/file", "x");
  volume_.file("top/kept/own/file", "x");
  volume_.folder("top/hidden/foreign/sub");
  volume_.setMode("top/kept/foreign", 0755);
  volume_.setMode("top/hidden/foreign", 0755);
  close({{"top/kept/own", 0555}, {"top/kept", 0555}, {"top/hidden", 0311}, {"top", 0500}});
  EXPECT_EQ(removeAsUser("top"), std::to_string(EACCES));
  EXPECT_FALSE(test::isThere(volume_.path("top/kept/own")));
  EXPECT_TRUE(test::isThere(volume_.path("top/kept/foreign/file")));
  EXPECT_EQ(modeOf("top/kept"), 0555U);
  EXPECT_EQ(modeOf("top/hidden"), 0311U);
  EXPECT_EQ(modeOf("top"), 0500U);
}

TEST_F(OwnerRights, foldersOfOtherUsersAreLeftAsTheyAre) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "only root can give files away";
  volume_.file("top/file", "x");
  volume_.setOwner("top", 4711);
  volume_.setMode("top", 0555);
  EXPECT_EQ(removeAsUser("top"), std::to_string(EACCES));
  EXPECT_EQ(removeAsUser("top/file"), std::to_string(EACCES));
  EXPECT_EQ(modeOf("top"), 0555U);
  EXPECT_TRUE(test::isThere(volume_.path("top/file")));
}

TEST_F(OwnerRights, folderBehindALinkKeepsItsMode) {
  volume_.file("elsewhere/file", "x");
  volume_.folder("top");
  volume_.link("top/link", volume_.path("elsewhere"));
  close({{"elsewhere", 0555}, {"top", 0555}});
  EXPECT_EQ(removeAsUser("top"), "0");
  EXPECT_EQ(modeOf("elsewhere"), 0555U);
  EXPECT_TRUE(test::isThere(volume_.path("elsewhere/file")));
}

/// Nested closed folders of the plain user, deeper than the levels that a removal keeps open.
class DeepOwnerRights : public OwnerRights {
 protected:
  static constexpr std::size_t kDepth = 2 * FolderRemoval::kMostOpen;

  DeepOwnerRights() {
    for (std::size_t i = 0; i < kDepth; ++i) levels_.push_back(levels_.back() + "/d");
  }
  void closeAll(mode_t mode) const {
    for (auto level = levels_.rbegin(); level != levels_.rend(); ++level) close({{level->c_str(), mode}});
  }

  std::vector<std::string> levels_{"top"};
};

TEST_F(DeepOwnerRights, levelsAreOpenedOneByOneAndClosedAgain) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "only root can give files away";
  volume_.file(levels_.back() + "/foreign/file", "x");
  volume_.setMode(levels_.back() + "/foreign", 0755);
  for (const mode_t mode : {0555U, 0311U}) {
    closeAll(mode);
    EXPECT_EQ(removeAsUser("top"), std::to_string(EACCES)) << mode;
    for (const std::string& level : levels_) EXPECT_EQ(modeOf(level), mode) << level.size();
  }
}

TEST_F(DeepOwnerRights, goWholly) {
  for (const mode_t mode : {0555U, 0000U}) {
    volume_.file(levels_.back() + "/file", "x");
    closeAll(mode);
    EXPECT_EQ(removeAsUser("top"), "0") << mode;
    EXPECT_FALSE(test::isThere(volume_.path("top"))) << mode;
  }
}

TEST_F(DeepOwnerRights, levelsThatAreNoLongerHeldHaveTheirModeBack) {
  volume_.file(levels_.back() + "/file", "x");
  closeAll(0555);
  const std::string told = test::inPlainChild([this]() -> std::string {
    RemovalPolicy policy = RemovalPolicy::forUser();
    policy.openOwnFolders();
    if (!test::raiseFence()) return "skip";
    return test::textOf(removeItem(volume_.path("top"), policy));
  });
  if (told == "skip") GTEST_SKIP() << "no filter";
  EXPECT_EQ(told, "ended by signal 31") << "at the first removal, when the walk is deepest";
  const auto held = levels_.size() - FolderRemoval::kMostOpen;
  for (std::size_t i = 0; i < held; ++i) EXPECT_EQ(modeOf(levels_[i]), 0555U) << i;
  EXPECT_EQ(modeOf(levels_.back()), 0755U);
}

TEST_F(OwnerRights, helperNeverChangesAMode) {
  RemovalPolicy policy = RemovalPolicy::forHelper(test::kPlainUser);
  policy.openOwnFolders();
  EXPECT_FALSE(policy.opensOwnFolders());
  EXPECT_FALSE(RemovalPolicy::forUser().opensOwnFolders());
}

TEST_F(OwnerRights, processThatHasTheRightsAnywayChangesNothing) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "needs a user with all rights";
  volume_.file("top/file", "x");
  volume_.setMode("top", 0555);
  const FileDescriptor top(::open(volume_.path("top").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  EXPECT_EQ(giveOwnerRights(top.get(), 0), std::nullopt);
  EXPECT_EQ(modeOf("top"), 0555U);
}

TEST_F(OwnerRights, setGroupIDBitIsNotGivenAwayForIt) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "needs a folder of a foreign group";
  volume_.file("top/file", "x");
  close({{"top", 0555}});
  ASSERT_EQ(::chown(volume_.path("top").c_str(), test::kPlainUser, 4711), 0);
  volume_.setMode("top", 02555);
  EXPECT_EQ(removeAsUser("top"), std::to_string(EACCES));
  EXPECT_EQ(modeOf("top"), 02555U);
}

TEST_F(OwnerRights, modeIsSetThroughADescriptorWithoutRights) {
  volume_.folder("top");
  const FileDescriptor top(::open(volume_.path("top").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  EXPECT_TRUE(setFolderMode(top.get(), 0510));
  EXPECT_EQ(modeOf("top"), 0510U);
  EXPECT_FALSE(setFolderMode(-1, 0700));
}

TEST_F(OwnerRights, aFolderIsHeldByItsNameAndALinkIsNot) {
  volume_.folder("top");
  volume_.link("link", "top");
  const FileDescriptor parent(::open(volume_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  EXPECT_TRUE(holdFolderIn(parent.get(), "top").isOpen());
  EXPECT_FALSE(holdFolderIn(parent.get(), "link").isOpen());
}

}  // namespace
}  // namespace sorrel
