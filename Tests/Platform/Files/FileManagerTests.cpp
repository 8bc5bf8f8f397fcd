#include "SorrelFramework/Platform/Files/FileManager.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

TEST(FileExists, seesFilesAndFolders) {
  const test::TemporaryVolume volume;
  bool isDirectory = true;
  EXPECT_TRUE(fileExists(volume.file("a", ""), &isDirectory));
  EXPECT_FALSE(isDirectory);
  EXPECT_TRUE(fileExists(volume.path(), &isDirectory));
  EXPECT_TRUE(isDirectory);
  EXPECT_TRUE(fileExists(volume.path()));
}

TEST(FileExists, followsLinks) {
  const test::TemporaryVolume volume;
  volume.folder("target");
  bool isDirectory = false;
  EXPECT_TRUE(fileExists(volume.link("link", "target"), &isDirectory));
  EXPECT_TRUE(isDirectory);
  EXPECT_FALSE(fileExists(volume.link("broken", "nowhere")));
}

TEST(FileExists, missingItemLeavesTheFlagAlone) {
  const test::TemporaryVolume volume;
  bool isDirectory = true;
  EXPECT_FALSE(fileExists(volume.path("none"), &isDirectory));
  EXPECT_TRUE(isDirectory);
  EXPECT_FALSE(fileExists("", &isDirectory));
  EXPECT_TRUE(isDirectory);
}

TEST(FileExists, nothingExistsInAFolderThatCannotBeSearched) {
  const test::TemporaryVolume volume;
  const std::string path = volume.file("closed/a", "");
  volume.setMode(".", 0755);
  volume.setMode("closed", 0);
  EXPECT_EQ(test::inPlainChild([&path] { return std::string(fileExists(path) ? "yes" : "no"); }), "no");
}

TEST(FileExists, pathWithANULNamesNothing) {
  const test::TemporaryVolume volume;
  const std::string path = volume.file("a", "") + std::string(1, '\0') + "b";
  EXPECT_FALSE(fileExists(path));
  EXPECT_FALSE(isDeletableFile(path));
}

/// Queries as a plain user about items in a folder that the test made.
class IsDeletableFile : public testing::Test {
 protected:
  IsDeletableFile() {
    volume_.file("folder/item", "");
    volume_.setMode(".", 0755);
  }
  [[nodiscard]] std::string asPlainUser(const std::string& name) const {
    return test::inPlainChild(
        [path = volume_.path(name)] { return std::string(isDeletableFile(path) ? "yes" : "no"); });
  }

  test::TemporaryVolume volume_;
};

TEST_F(IsDeletableFile, goesByTheRightToWriteInTheFolder) {
  volume_.setMode("folder", 0777);
  EXPECT_EQ(asPlainUser("folder/item"), "yes");
  volume_.setMode("folder", 0555);
  EXPECT_EQ(asPlainUser("folder/item"), "no");
}

TEST_F(IsDeletableFile, itemsOwnModeDoesNotCount) {
  volume_.setMode("folder", 0777);
  volume_.setMode("folder/item", 0);
  EXPECT_EQ(asPlainUser("folder/item"), "yes");
}

TEST_F(IsDeletableFile, missingItemIsDeletableInAWritableFolder) {
  volume_.setMode("folder", 0777);
  EXPECT_EQ(asPlainUser("folder/none"), "yes");
  volume_.setMode("folder", 01777);
  EXPECT_EQ(asPlainUser("folder/none"), "yes");
  EXPECT_EQ(asPlainUser("none/none"), "no");
}

TEST_F(IsDeletableFile, stickyFolderKeepsTheItemsOfOthers) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "needs items of two owners";
  volume_.file("folder/own", "");
  volume_.setOwner("folder/own", test::kPlainUser);
  volume_.setMode("folder", 01777);
  EXPECT_EQ(asPlainUser("folder/item"), "no");
  EXPECT_EQ(asPlainUser("folder/own"), "yes");
}

TEST_F(IsDeletableFile, linkIsLookedAtItself) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "needs items of two owners";
  volume_.link("folder/link", "item");
  volume_.setOwner("folder/link", test::kPlainUser);
  volume_.setMode("folder", 01777);
  EXPECT_EQ(asPlainUser("folder/link"), "yes");
}

TEST_F(IsDeletableFile, pathMayBeRelativeOrEndInASlash) {
  volume_.folder("folder/sub");
  volume_.setMode("folder", 0777);
  EXPECT_EQ(asPlainUser("folder/sub/"), "yes");
  const std::string told = test::inPlainChild([this]() -> std::string {
    std::filesystem::current_path(volume_.path("folder"));
    return isDeletableFile("item") ? "yes" : "no";
  });
  EXPECT_EQ(told, "yes");
}

TEST(FolderRights, ofAnOpenFolder) {
  const test::TemporaryVolume volume;
  volume.folder("folder");
  volume.setMode("folder", 01777);
  const FileDescriptor folder(::open(volume.path("folder").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const FolderRights rights = FolderRights::of(folder.get());
  EXPECT_TRUE(rights.writable);
  EXPECT_TRUE(rights.sticky);
  EXPECT_TRUE(rights.allowDeletion(::getuid()));
  EXPECT_FALSE(rights.allowDeletion(::getuid() + 1));
}

TEST(FolderRights, noRightToWriteAllowsNothing) {
  const FolderRights none;
  EXPECT_FALSE(none.allowDeletion(::getuid()));
  EXPECT_FALSE(FolderRights::of(-1).writable);
}

}  // namespace
}  // namespace sorrel
