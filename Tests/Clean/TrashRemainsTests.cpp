#include "SorrelFramework/Clean/TrashRemains.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <string>

#include "Tests/Clean/TrashKit.hpp"
#include "Tests/Support/ForkedChild.hpp"

namespace sorrel::test {
namespace {

class TrashRemainsTest : public TrashTest {
 protected:
  static constexpr std::int64_t kNow = 2'000'000'000;

  /// The result long after all items were written.
  [[nodiscard]] TrashRemains found(const std::string& root = "data/Trash/files", Date now = {1e11}) const {
    return TrashRemains::find({URL::fileURL(home_.path(root), true)}, now);
  }
  Names goneAfterEmptying(const std::string& root = "data/Trash/files") {
    const auto before = items();
    failures_ = found(root).remove();
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
  EXPECT_EQ(found().remove(), Names());
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
  const TrashRemains none =
      TrashRemains::find({URL(), *URL::parse("https://example.org/Trash/files")}, {1e11});
  EXPECT_TRUE(none.items().empty());
  EXPECT_EQ(none.remove(), Names());
  home_.install();
  EXPECT_EQ(goneAfterEmptying(), Names());
}

TEST_F(TrashRemainsTest, foldersOfNothingButEmptyFilesAndFoldersGo) {
  trash("zerodir/z", "");
  home_.folder(kFiles + "nested/a/b");
  home_.file(kFiles + "kept/a/z", "");
  home_.file(kFiles + "kept/b", "x");
  EXPECT_EQ(goneAfterEmptying(), (Names{kFiles + "nested", kFiles + "nested/a", kFiles + "nested/a/b",
                                        kFiles + "zerodir", kFiles + "zerodir/z"}));
  EXPECT_EQ(found().itemsThatStayed(), Names{home_.path(kFiles + "kept")});
}

TEST_F(TrashRemainsTest, folderThatCannotBeReadCountsAsOneWithBytes) {
  home_.folder(kFiles + "top/closed");
  home_.setMode("", 0755);
  if (::geteuid() == 0) home_.setOwner(kFiles + "top/closed", 4711);
  for (const char* name : {"data", "data/Trash", "data/Trash/files"}) {
    if (::geteuid() == 0) home_.setOwner(name, kPlainUser);
  }
  home_.setMode(kFiles + "top/closed", 0);
  const std::string told = inPlainChild([this]() -> std::string {
    Host::install(Host::linuxDesktop({}));
    const TrashRemains remains = found();
    return std::to_string(remains.items().size()) + std::to_string(remains.itemsThatStayed().size());
  });
  EXPECT_EQ(told, "01");
}

TEST_F(TrashRemainsTest, recordsOfItemsThatMayBeOnTheirWayStay) {
  for (const char* name : {"old", "young", "future"}) home_.file(infoOf(name), "[Trash Info]\n");
  home_.setModified(infoOf("old"), kNow - 3600);
  home_.setModified(infoOf("young"), kNow - 3599);
  home_.setModified(infoOf("future"), kNow + 10);
  const auto items = found("data/Trash/files", {static_cast<double>(kNow)}).items();
  ASSERT_EQ(items.size(), 1U);
  EXPECT_EQ(items.front().path, home_.path(infoOf("old")));
}

TEST_F(TrashRemainsTest, youngRecordsAreNamedUntilTheyOrTheirItemsChange) {
  for (const char* name : {"arrived", "complete", "gone", "old", "young"}) {
    home_.file(infoOf(name), "[Trash Info]\n");
    home_.setModified(infoOf(name), kNow);
  }
  home_.file(kFiles + "complete", "x");
  home_.setModified(infoOf("old"), kNow - 3600);
  const TrashRemains remains = found("data/Trash/files", {static_cast<double>(kNow)});
  home_.file(kFiles + "arrived", "x");
  std::filesystem::remove(home_.path(infoOf("gone")));
  EXPECT_EQ(remains.remove(), Names());
  Names names;
  for (const TrashRemains::Item& item : remains.youngRecords())
    names.push_back(item.path + " " + std::to_string(item.size));
  EXPECT_EQ(names, Names{home_.path(infoOf("young")) + " 13"});
}

TEST_F(TrashRemainsTest, looksAndNamesBeforeItRemoves) {
  home_.file(kFiles + "empty", "");
  home_.file(infoOf("lonely"), "12345");
  home_.file("data/Trash/expunged/1/a", "123");
  home_.file("data/Trash/expunged/1/b", "4");
  const auto before = items();
  const TrashRemains remains = found();
  Names names;
  for (const TrashRemains::Item& item : remains.items())
    names.push_back(item.path + " " + std::to_string(item.size));
  EXPECT_EQ(names, (Names{home_.path(kFiles + "empty") + " 0", home_.path(infoOf("lonely")) + " 5",
                          home_.path("data/Trash/expunged/1") + " 4"}));
  EXPECT_EQ(items(), before);
}

TEST_F(TrashRemainsTest, whatCameOrGrewSinceStays) {
  home_.file(kFiles + "empty", "");
  home_.file(kFiles + "folder/z", "");
  const TrashRemains remains = found();
  home_.file(kFiles + "empty", "x");
  home_.file(kFiles + "folder/z", "x");
  home_.file(kFiles + "new", "");
  const auto before = items();
  EXPECT_EQ(remains.remove(), (Names{home_.path(kFiles + "empty"), home_.path(kFiles + "folder")}));
  EXPECT_EQ(items(), before);
}

TEST_F(TrashRemainsTest, whatTookThePlaceOfAnItemStaysWithItsRecord) {
  trash("empty", "");
  home_.folder(kFiles + "folder");
  const TrashRemains remains = found();
  for (const char* const name : {"empty", "folder"}) {
    const std::string path = home_.path(kFiles + name);
    std::filesystem::rename(path, home_.path(std::string("was ") + name));
  }
  home_.file(kFiles + "empty", "");
  home_.folder(kFiles + "folder");
  const auto before = items();
  EXPECT_EQ(remains.remove(), (Names{home_.path(kFiles + "empty"), home_.path(kFiles + "folder")}));
  EXPECT_EQ(items(), before);
}

TEST_F(TrashRemainsTest, stopsBetweenItems) {
  for (const char* name : {"a", "b", "c"}) home_.file(kFiles + name, "");
  const TrashRemains remains = found();
  int asked = 0;
  EXPECT_EQ(remains.remove([&asked] { return ++asked == 2; }), Names());
  EXPECT_FALSE(std::filesystem::exists(home_.path(kFiles + "a")));
  EXPECT_TRUE(std::filesystem::exists(home_.path(kFiles + "b")));
  EXPECT_TRUE(std::filesystem::exists(home_.path(kFiles + "c")));
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
