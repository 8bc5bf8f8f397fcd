#include "SorrelFramework/Clean/TrashRecords.hpp"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "Tests/Clean/TrashKit.hpp"
#include "Tests/Support/ForkedChild.hpp"

namespace sorrel::test {
namespace {

using TrashRecordsTest = TrashTest;

TEST_F(TrashRecordsTest, recordGoesWithItsItemAndOthersStay) {
  for (const char* name : {"gone", "kept", "gone.txt"}) trash(name);
  EXPECT_EQ(goneAfterRemoving({"gone"}), (Names{kFiles + "gone", infoOf("gone")}));
}

TEST_F(TrashRecordsTest, namesOfAnyBytesAreFound) {
  for (const std::string name : {"a\nb", "\xff", "100%41", "x.trashinfo", "-rf"}) {
    trash(name);
    EXPECT_EQ(goneAfterRemoving({name}), (Names{kFiles + name, infoOf(name)})) << name;
  }
}

TEST_F(TrashRecordsTest, linesGoWithTheirFoldersAndOthersStay) {
  home_.file(kFiles + "a folder/x", "x");
  home_.file(kFiles + "kept/x", "x");
  home_.file(kSizes, "1 2 a%20folder\n1 2 kept\n1 2 ghost\n");
  const FileRemover::Session removal = FileRemover::shard().begin();
  EXPECT_EQ(removal.removeItem(url(kFiles + "a folder")), std::nullopt);
  EXPECT_EQ(contentOf(home_.path(kSizes)), "1 2 a%20folder\n1 2 kept\n1 2 ghost\n");
  removal.finish();
  EXPECT_EQ(contentOf(home_.path(kSizes)), "1 2 kept\n1 2 ghost\n");
}

TEST_F(TrashRecordsTest, recordOfAnItemThatIsStillThereStays) {
  trash("a");
  const auto before = items();
  const FileRemover::Session removal = FileRemover::shard().begin();
  removal.forgetTrashed(url(kFiles + "a"));
  removal.finish();
  EXPECT_EQ(items(), before);
}

TEST_F(TrashRecordsTest, recordOfAnItemThatCouldNotBeRemovedStays) {
  trash("a");
  CleanStage stage;
  Host::install(Host::linuxDesktop({}));
  stage.failRemoving({home_.path(kFiles + "a")}, EACCES);
  const auto before = items();
  const FileRemover::Session removal = FileRemover::shard().begin();
  EXPECT_NE(removal.removeItem(url(kFiles + "a")), std::nullopt);
  removal.finish();
  EXPECT_EQ(items(), before);
}

TEST_F(TrashRecordsTest, whatLiesDeeperInTheTrashHasNoRecord) {
  trash("d");
  ASSERT_EQ(::unlink(home_.path(kFiles + "d").c_str()), 0);
  home_.file(kFiles + "d/files/d", "x");
  EXPECT_EQ(goneAfterRemoving({"d/files/d"}), Names{kFiles + "d/files/d"});
}

TEST_F(TrashRecordsTest, folderOfTheSameFormElsewhereIsNoTrash) {
  for (const std::string name : {"backup/Trash/files/a", "backup/Trash/info/a.trashinfo"})
    home_.file(name, "x");
  const auto before = items();
  EXPECT_EQ(FileRemover::shard().begin().removeItem(url("backup/Trash/files/a")), std::nullopt);
  EXPECT_EQ(goneBetween(before, items()), Names{"backup/Trash/files/a"});
}

TEST_F(TrashRecordsTest, nothingIsRemovedThroughALinkInPlaceOfTheInfoFolder) {
  trash("a");
  std::filesystem::remove_all(home_.path(kInfo));
  home_.file("precious/a.trashinfo", "x");
  home_.link("data/Trash/info", home_.path("precious"));
  EXPECT_EQ(goneAfterRemoving({"a"}), Names{kFiles + "a"});
}

TEST_F(TrashRecordsTest, itemCalledLikeARecordStaysWhereTheInfoFolderIsALinkToTheItems) {
  std::filesystem::remove_all(home_.path(kInfo));
  home_.link("data/Trash/info", "files");
  home_.file(kFiles + "a.txt", "x");
  home_.file(kFiles + "a.txt.trashinfo", "precious");
  EXPECT_EQ(goneAfterRemoving({"a.txt"}), Names{kFiles + "a.txt"});
}

TEST_F(TrashRecordsTest, itemCalledLikeARecordStaysWhereItsFolderIsMountedOnTheInfoFolder) {
  home_.file(kFiles + "a.txt", "x");
  home_.file(kFiles + "a.txt.trashinfo", "precious");
  const std::string told = inMountingChild([&]() -> std::string {
    const std::string info = home_.path("data/Trash/info");
    if (::mount(home_.path(kFiles).c_str(), info.c_str(), nullptr, MS_BIND, nullptr) != 0) return "skip";
    return FileRemover::shard().begin().removeItem(url(kFiles + "a.txt")).value_or("gone");
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, "gone");
  EXPECT_TRUE(std::filesystem::exists(home_.path(kFiles + "a.txt.trashinfo")));
}

TEST_F(TrashRecordsTest, nothingIsRemovedThroughALinkToAnotherFolderOfTheTrash) {
  std::filesystem::remove_all(home_.path(kInfo));
  home_.file("data/Trash/other/a.trashinfo", "x");
  home_.link("data/Trash/info", "other");
  home_.file(kFiles + "a", "x");
  EXPECT_EQ(goneAfterRemoving({"a"}), Names{kFiles + "a"});
}

TEST_F(TrashRecordsTest, nothingIsRemovedFromAFolderThatIsMountedOnTheInfoFolder) {
  trash("a");
  home_.file("precious/a.trashinfo", "x");
  const std::string told = inMountingChild([&]() -> std::string {
    const std::string info = home_.path("data/Trash/info");
    if (::mount(home_.path("precious").c_str(), info.c_str(), nullptr, MS_BIND, nullptr) != 0) return "skip";
    return FileRemover::shard().begin().removeItem(url(kFiles + "a")).value_or("gone");
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, "gone");
  EXPECT_TRUE(std::filesystem::exists(home_.path("precious/a.trashinfo")));
}

TEST_F(TrashRecordsTest, recordThatIsAFolderStaysAndOneThatIsALinkGoesItself) {
  for (const std::string name : {"a", "b"}) home_.file(kFiles + name, "x");
  home_.file(infoOf("a") + "/precious", "x");
  home_.file("precious", "x");
  home_.link(infoOf("b"), home_.path("precious"));
  EXPECT_EQ(goneAfterRemoving({"a", "b"}), (Names{kFiles + "a", kFiles + "b", infoOf("b")}));
}

TEST_F(TrashRecordsTest, itemWithoutARecordAndTrashWithoutAnInfoFolderAreNoFailure) {
  home_.file(kFiles + "a", "x");
  home_.file(kFiles + "b", "x");
  EXPECT_EQ(goneAfterRemoving({"a"}), Names{kFiles + "a"});
  std::filesystem::remove_all(home_.path(kInfo));
  EXPECT_EQ(goneAfterRemoving({"b"}), Names{kFiles + "b"});
}

TEST_F(TrashRecordsTest, recordOfAnItemThatTheHelperRemovedGoesToo) {
  trash("a");
  trash("kept");
  home_.file(kSizes, "1 2 a\n");
  CleanStage stage;
  stage.setHelper(std::make_shared<ScriptedHelper>(
      deletingWhere([](const std::string& path) { return path.ends_with("/a"); })));
  Host::install(Host::linuxDesktop({"org.example.test", "", {}}));
  const auto before = items();
  const auto finish = std::make_shared<FinishRecord>();
  const auto all = makeCategory(stage.feature, kOn,
                                {makeRecord({url(kFiles + "a"), kOn, 1, false}),
                                 makeRecord({url(kFiles + "kept"), kOn, 1, false, {}, 1})});
  CleanService::cleanCategorys({all}, CleanServiceType::Common, finish);
  ASSERT_TRUE(finish->waitUntilFinished());
  auto after = items();
  std::erase_if(after, [this](const TreeEntry& entry) { return entry.path == kSizes; });
  EXPECT_EQ(goneBetween(before, after), (Names{kSizes, kFiles + "a", infoOf("a")}));
  EXPECT_EQ(contentOf(home_.path(kSizes)), "");
}

TEST_F(TrashRecordsTest, cleanHasTheSizesUpToDateBeforeItEnds) {
  home_.file(kFiles + "a/x", "x");
  home_.file(kSizes, "1 2 a\n");
  CleanStage stage;
  Host::install(Host::linuxDesktop({}));
  const auto finish = std::make_shared<FinishRecord>();
  std::string atHalf;
  finish->onProgress = [&](float percent) {
    if (percent == 0.5F) atHalf = contentOf(home_.path(kSizes)) + "read";
  };
  const auto all = makeCategory(stage.feature, kOn, {makeRecord({url(kFiles + "a"), kOn, 1})});
  CleanService::cleanCategorys({all}, CleanServiceType::Common, finish);
  ASSERT_TRUE(finish->waitUntilFinished());
  EXPECT_EQ(atHalf, "read");
}

}  // namespace
}  // namespace sorrel::test
