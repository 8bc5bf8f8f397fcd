#include "SorrelFramework/Clean/TrashRemains.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "Tests/Clean/TrashKit.hpp"

namespace sorrel::test {
namespace {

class TrashRemainsTest : public TrashTest {
 protected:
  Names goneAfterEmptying(const std::string& root = "data/Trash/files") {
    const auto before = items();
    failures_ = TrashRemains::remove({URL::fileURL(home_.path(root), true)});
    return goneBetween(before, items());
  }

  Names failures_;
};

TEST_F(TrashRemainsTest, recordsWithoutAnItemGo) {
  trash("kept");
  home_.file(infoOf("lonely"), "[Trash Info]\n");
  home_.file(kInfo + "note", "x");
  EXPECT_EQ(goneAfterEmptying(), Names{infoOf("lonely")});
  EXPECT_EQ(failures_, Names());
}

TEST_F(TrashRemainsTest, itemsWithoutAByteGoWithTheirRecords) {
  trash("empty", "");
  trash("full");
  home_.file(kFiles + "lonely", "");
  home_.folder(kFiles + "folder");
  home_.file(infoOf("folder"), "[Trash Info]\n");
  home_.fifo(kFiles + "pipe");
  home_.file(kFiles + "folder with/file", "x");
  home_.link(kFiles + "link", "/nowhere");
  EXPECT_EQ(goneAfterEmptying(), (Names{kFiles + "empty", kFiles + "folder", kFiles + "lonely",
                                        kFiles + "pipe", infoOf("empty"), infoOf("folder")}));
}

TEST_F(TrashRemainsTest, itemThatHasBytesStaysThoughNothingIsOnRecordAboutIt) {
  home_.file(kFiles + "new", "x");
  EXPECT_EQ(goneAfterEmptying(), Names());
}

TEST_F(TrashRemainsTest, whatWasAboutToBeDeletedGoesAndItsFolderStays) {
  home_.file("data/Trash/expunged/123/a", "x");
  home_.file("data/Trash/expunged/b", "x");
  home_.file("precious/x", "x");
  home_.link("data/Trash/expunged/link", home_.path("precious"));
  EXPECT_EQ(goneAfterEmptying(), (Names{"data/Trash/expunged/123", "data/Trash/expunged/123/a",
                                        "data/Trash/expunged/b", "data/Trash/expunged/link"}));
}

TEST_F(TrashRemainsTest, linesWithoutAFolderGo) {
  home_.file(kFiles + "kept/x", "x");
  home_.file(kSizes, "1 2 kept\n1 2 ghost\n");
  EXPECT_EQ(TrashRemains::remove({url("data/Trash/files")}), Names());
  EXPECT_EQ(contentOf(home_.path(kSizes)), "1 2 kept\n");
}

TEST_F(TrashRemainsTest, linksInPlaceOfTheFoldersAreNotFollowed) {
  home_.file("precious/a.trashinfo", "x");
  home_.file("precious/empty", "");
  std::filesystem::remove_all(home_.path(kInfo));
  home_.link("data/Trash/info", home_.path("precious"));
  home_.link("data/Trash/expunged", home_.path("precious"));
  home_.link(kFiles + "link", home_.path("precious"));
  EXPECT_EQ(goneAfterEmptying(), Names());
  std::filesystem::remove_all(home_.path(kFiles));
  home_.link("data/Trash/files", home_.path("precious"));
  EXPECT_EQ(goneAfterEmptying(), Names());
}

TEST_F(TrashRemainsTest, otherFoldersAreLeftAlone) {
  home_.file("backup/Trash/files/empty", "");
  home_.file("backup/Trash/info/lonely.trashinfo", "x");
  EXPECT_EQ(goneAfterEmptying("backup/Trash/files"), Names());
  home_.file(infoOf("lonely"), "x");
  EXPECT_EQ(goneAfterEmptying("data/Trash"), Names());
  EXPECT_EQ(TrashRemains::remove({URL(), *URL::parse("https://example.org/Trash/files")}), Names());
  home_.install();
  EXPECT_EQ(goneAfterEmptying(), Names());
}

TEST_F(TrashRemainsTest, whatCouldNotBeRemovedIsNamed) {
  CleanStage stage;
  Host::install(Host::linuxDesktop({}));
  home_.file("data/Trash/expunged/a", "x");
  home_.file(infoOf("lonely") + "/x", "x");
  stage.failRemoving({home_.path("data/Trash/expunged/a")}, EACCES);
  EXPECT_EQ(goneAfterEmptying(), Names());
  EXPECT_EQ(failures_, (Names{home_.path(infoOf("lonely")), home_.path("data/Trash/expunged/a")}));
}

}  // namespace
}  // namespace sorrel::test
