#include "SorrelFramework/Platform/Machine/TrashFolders.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

using Paths = std::vector<std::string>;

class TrashOnMacVolume : public testing::Test {
 protected:
  TrashOnMacVolume() {
    volume_.folder("Volumes/stick");
    volume_.install();
    uid_ = std::to_string(Host::current().userID());
  }
  [[nodiscard]] Paths found() const { return trashFoldersOf(volume_.path("Volumes/stick")); }

  test::TemporaryVolume volume_;
  std::string uid_;
};

TEST_F(TrashOnMacVolume, isTheFolderOfTheUser) {
  EXPECT_TRUE(found().empty());
  const std::string trash = volume_.folder("Volumes/stick/.Trashes/" + uid_);
  volume_.folder("Volumes/stick/.Trashes/4711");
  EXPECT_EQ(found(), Paths{trash});
}

TEST_F(TrashOnMacVolume, slashBehindTheVolumeDoesNotCount) {
  const std::string trash = volume_.folder("Volumes/stick/.Trashes/" + uid_);
  EXPECT_EQ(trashFoldersOf(volume_.path("Volumes/stick/")), Paths{trash});
}

TEST_F(TrashOnMacVolume, userIsTheOwnerOfTheHome) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "needs a home of another owner";
  volume_.setOwner("Users/alice", 501);
  volume_.install();
  const std::string trash = volume_.folder("Volumes/stick/.Trashes/501");
  volume_.folder("Volumes/stick/.Trashes/0");
  EXPECT_EQ(found(), Paths{trash});
}

TEST_F(TrashOnMacVolume, userOfThisProcessCountsWhereTheHomesOwnerHasNoTrash) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "needs a home of another owner";
  volume_.setOwner("Users/alice", 501);
  volume_.install();
  const std::string trash = volume_.folder("Volumes/stick/.Trashes/0");
  volume_.folder("Volumes/stick/.Trashes/502");
  EXPECT_EQ(found(), Paths{trash});
}

TEST_F(TrashOnMacVolume, linksAreIgnored) {
  volume_.folder("elsewhere/" + uid_);
  volume_.link("Volumes/stick/.Trashes", volume_.path("elsewhere"));
  EXPECT_TRUE(found().empty());
}

TEST_F(TrashOnMacVolume, linkInTheFolderOfTheUsersIsIgnored) {
  volume_.folder("elsewhere");
  volume_.link("Volumes/stick/.Trashes/" + uid_, volume_.path("elsewhere"));
  EXPECT_TRUE(found().empty());
}

TEST_F(TrashOnMacVolume, fileIsNoTrash) {
  volume_.file("Volumes/stick/.Trashes/" + uid_, "");
  EXPECT_TRUE(found().empty());
}

TEST_F(TrashOnMacVolume, conventionOfTheDesktopDoesNotCount) {
  volume_.folder("Volumes/stick/.Trash-" + uid_ + "/files");
  EXPECT_TRUE(found().empty());
}

class TrashOnDesktop : public testing::Test {
 protected:
  TrashOnDesktop() { Host::install(Host::linuxDesktop({})); }
  [[nodiscard]] Paths found() const { return trashFoldersOf(volume_.path()); }
  [[nodiscard]] std::string own() const { return ".Trash-" + uid_; }
  [[nodiscard]] std::string shared() const { return ".Trash/" + uid_; }

  test::TemporaryVolume volume_;
  std::string uid_ = std::to_string(::getuid());
};

TEST_F(TrashOnDesktop, isTheFilesFolderOfTheUsersOwnTrash) {
  EXPECT_TRUE(found().empty());
  const std::string files = volume_.folder(own() + "/files");
  volume_.folder(own() + "/info");
  volume_.folder(".Trash-4711/files");
  EXPECT_EQ(found(), Paths{files});
}

TEST_F(TrashOnDesktop, sharedTrashComesFirst) {
  const std::string files = volume_.folder(own() + "/files");
  const std::string sharedFiles = volume_.folder(shared() + "/files");
  volume_.setMode(".Trash", 01777);
  EXPECT_EQ(found(), (Paths{sharedFiles, files}));
}

TEST_F(TrashOnDesktop, sharedTrashWithoutTheStickyBitIsIgnored) {
  volume_.folder(shared() + "/files");
  volume_.setMode(".Trash", 0777);
  EXPECT_TRUE(found().empty());
}

TEST_F(TrashOnDesktop, sharedTrashThatIsALinkIsIgnored) {
  volume_.folder("elsewhere/" + uid_ + "/files");
  volume_.setMode("elsewhere", 01777);
  volume_.link(".Trash", "elsewhere");
  EXPECT_TRUE(found().empty());
}

TEST_F(TrashOnDesktop, linksInTheirPlaceAreIgnored) {
  volume_.folder("elsewhere/files");
  volume_.link(own(), "elsewhere");
  volume_.folder(".Trash");
  volume_.setMode(".Trash", 01777);
  volume_.link(shared(), "../elsewhere");
  EXPECT_TRUE(found().empty());
}

TEST_F(TrashOnDesktop, filesFolderThatIsALinkIsIgnored) {
  volume_.folder("elsewhere");
  volume_.link(own() + "/files", "../elsewhere");
  EXPECT_TRUE(found().empty());
}

TEST_F(TrashOnDesktop, trashOfSomebodyElseIsIgnored) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "needs a folder of another owner";
  volume_.folder(own() + "/files");
  volume_.folder(shared() + "/files");
  volume_.setMode(".Trash", 01777);
  volume_.setOwner(own(), 4711);
  volume_.setOwner(shared(), 4711);
  EXPECT_TRUE(found().empty());
}

TEST_F(TrashOnDesktop, filesFolderOfSomebodyElseIsIgnored) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "needs a folder of another owner";
  volume_.folder(own() + "/files");
  volume_.setOwner(own() + "/files", 4711);
  EXPECT_TRUE(found().empty());
}

TEST_F(TrashOnDesktop, conventionOfTheMacDoesNotCount) {
  volume_.folder(".Trashes/" + uid_);
  EXPECT_TRUE(found().empty());
}

}  // namespace
}  // namespace sorrel
