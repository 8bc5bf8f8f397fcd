#include "SorrelFramework/Scan/TreeWalk.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "SorrelFramework/Scan/SuperScanService.hpp"
#include "Tests/Scan/TreeWalkKit.hpp"

namespace sorrel::test {
namespace {

TEST_F(Walk, parentsComeBeforeTheirChildrenAndChildrenByTheBytesOfTheirNames) {
  for (const char* name : {"root/b", "root/B", "root/a/z", "root/a/\xC3\xA4", "root/a.txt", "root/a/y/x"}) {
    volume.file(name, "1");
  }
  run();
  EXPECT_EQ(names(), (Names{"B", "a/", "a/y/", "a/y/x", "a/z", "a/\xC3\xA4", "a.txt", "b"}));
}

TEST_F(Walk, recordsAreNumberedInOrderFromZero) {
  for (const char* name : {"root/c", "root/a/b", "root/d"}) volume.file(name, "1");
  run();
  for (std::size_t i = 0; i < records.size(); ++i) EXPECT_EQ(records[i]->finderID, static_cast<Integer>(i));
  EXPECT_EQ(records.size(), 4U);
}

TEST_F(Walk, recordHoldsWhatTheWalkKnows) {
  volume.file("root/Some.app/Contents/x", "4444");
  run(NSDirectoryEnumerationSkipsPackageDescendants);
  const auto app = record("Some.app/");
  ASSERT_TRUE(app);
  EXPECT_EQ(app->state, NSControlStateValueOn);
  EXPECT_EQ(app->parentFinderID, 1);
  EXPECT_EQ(app->title, "Some");
  EXPECT_EQ(app->icon, Image::iconOf(app->url));
  EXPECT_EQ(app->size, 4);
  EXPECT_TRUE(app->canDelete);
  EXPECT_FALSE(app->removeCategory);
  EXPECT_EQ(app->parentCategoryInfo.get(), &feature->categoryInfo[0]);
  EXPECT_EQ(app->fileKind, rawValue(FilesKind::Package));
  EXPECT_EQ(app->levelInt, 0);
  EXPECT_FALSE(app->parentFileInfo);
  EXPECT_EQ(app->hashValueString, "0:1:4:" + app->url.absoluteString());
}

TEST_F(Walk, dateIsThePresentMomentUnlessTheCreationDateWasAskedFor) {
  volume.file("root/a", "1");
  const Date before = Date::now();
  run();
  EXPECT_GE(records.at(0)->date, before);

  keys = keys | NSURLCreationDateKey;
  const auto created = resourceValues(volume.url("root/a"), NSURLCreationDateKey)->creationDate;
  ASSERT_TRUE(created);
  run();
  EXPECT_EQ(records.at(0)->date, *created);
}

TEST_F(Walk, withoutTheFolderKeysEveryItemCountsAsAFile) {
  volume.file("root/folder/a", "22");
  keys = NSURLFileSizeKey;
  run(0, {}, true);
  EXPECT_EQ(names(), (Names{"folder/", "folder/a"}));
  EXPECT_EQ(record("folder/")->fileKind, rawValue(FilesKind::File));
  EXPECT_EQ(record("folder/")->size, 0);
  EXPECT_EQ(totals.fileNumber, 2);
  EXPECT_EQ(totals.folderNumber, 0);
}

// Sizes and totals

TEST_F(Walk, everyFolderHasTheSizeThatASizingOfItsOwnFinds) {
  volume.file("root/a", "1");
  volume.file("root/one/.hidden", "22");
  volume.file("root/one/.hiddenFolder/x/y", "333");
  volume.file("root/one/two/Some.app/Contents/z", "4444");
  volume.file("root/one/two/three/b", "55555");
  ASSERT_EQ(::symlink("b", volume.path("root/one/two/three/link").c_str()), 0);
  run(NSDirectoryEnumerationSkipsHiddenFiles | NSDirectoryEnumerationSkipsPackageDescendants);
  EXPECT_EQ(names(), (Names{"a", "one/", "one/two/", "one/two/Some.app/", "one/two/three/", "one/two/three/b",
                            "one/two/three/link"}));
  for (const char* folder : {"one/", "one/two/", "one/two/Some.app/", "one/two/three/"}) {
    EXPECT_EQ(record(folder)->size, sizeNow(folder)) << folder;
  }
  EXPECT_EQ(record("one/")->size, 2 + 3 + 4 + 5 + 1);
}

TEST_F(Walk, prunedFolderIsSizedAsAWhole) {
  volume.file("root/one/two/b", "55555");
  volume.file("root/one/.c", "1");
  run(NSDirectoryEnumerationSkipsHiddenFiles,
      [](const URL&, const ResourceValues&, EnumerationPosition* position) {
        position->skipDescendants();
        return true;
      });
  EXPECT_EQ(names(), Names{"one/"});
  EXPECT_EQ(record("one/")->size, 6);
}

TEST_F(Walk, totalsCountFoldersAndFilesApart) {
  volume.file("root/a", "1");
  volume.file("root/one/b", "22");
  volume.folder("root/empty");
  run();
  EXPECT_EQ(totals.url, volume.url("root/"));
  EXPECT_EQ(totals.fileSize, 3);
  EXPECT_EQ(totals.fileNumber, 2);
  EXPECT_EQ(totals.folderSize, 2);
  EXPECT_EQ(totals.folderNumber, 2);
}

TEST_F(Walk, emptyItemsAreCountedButMakeNoRecord) {
  volume.folder("root/empty");
  volume.file("root/zero", "");
  run();
  EXPECT_EQ(names(), Names{});
  EXPECT_EQ(totals.folderNumber, 1);
  EXPECT_EQ(totals.fileNumber, 1);
  EXPECT_EQ(progress.size(), 2U);
}

TEST_F(Walk, emptyItemsMakeRecordsWhereTheyAreWanted) {
  volume.folder("root/empty");
  volume.file("root/zero", "");
  run(0, {}, true);
  EXPECT_EQ(names(), (Names{"empty/", "zero"}));
  EXPECT_EQ(record("zero")->finderID, 1);
}

// Filter

TEST_F(Walk, itemThatTheFilterDropsIsNeitherRecordedNorCountedButStillEntered) {
  volume.file("root/one/keep", "22");
  volume.file("root/drop", "1");
  run(0, [](const URL& url, const ResourceValues&, EnumerationPosition*) {
    return url.lastPathComponent() == "keep";
  });
  EXPECT_EQ(names(), Names{"one/keep"});
  EXPECT_EQ(totals.fileNumber, 1);
  EXPECT_EQ(totals.folderNumber, 0);
  EXPECT_EQ(progress.size(), 1U);
}

TEST_F(Walk, filterThatDropsAFolderMayKeepTheWalkOutOfIt) {
  volume.file("root/one/a", "22");
  volume.file("root/two/a", "22");
  run(0, [](const URL& url, const ResourceValues&, EnumerationPosition* position) {
    if (url.lastPathComponent() != "one") return true;
    position->skipDescendants();
    return false;
  });
  EXPECT_EQ(names(), (Names{"two/", "two/a"}));
}

TEST_F(Walk, filterSeesValuesAndTheLevelCountedFromOne) {
  volume.file("root/a/b/c", "1");
  std::mutex mutex;
  std::map<std::string, int> levels;
  run(0, [&](const URL& url, const ResourceValues& values, EnumerationPosition* position) {
    const std::lock_guard lock(mutex);
    EXPECT_EQ(values.isDirectory, url.lastPathComponent() != "c");
    EXPECT_EQ(values.path, std::nullopt);
    levels[url.lastPathComponent()] = position->level();
    return true;
  });
  EXPECT_EQ(levels, (std::map<std::string, int>{{"a", 1}, {"b", 2}, {"c", 3}}));
}

TEST_F(Walk, optionForOneLevelLeavesSubfoldersUnenteredButSized) {
  volume.file("root/a/b/c", "1");
  run(NSDirectoryEnumerationSkipsSubdirectoryDescendants);
  EXPECT_EQ(names(), Names{"a/"});
  EXPECT_EQ(record("a/")->size, 1);
}

// Progress

TEST_F(Walk, progressTellsPathAndOwnSizeOfEachKeptItem) {
  volume.file("root/a b", "22");
  volume.file("root/folder/c", "1");
  run();
  std::sort(progress.begin(), progress.end());
  EXPECT_EQ(progress, (std::vector<std::pair<std::string, std::int64_t>>{{volume.path("root/a b"), 2},
                                                                         {volume.path("root/folder/"), 0},
                                                                         {volume.path("root/folder/c"), 1}}));
}

// Roots

TEST_F(Walk, rootThatIsAPlainFileIsRecordedWithoutAQuestionToTheFilter) {
  volume.file("root", "333");
  runAt(volume.url("root"), 0, [](const URL&, const ResourceValues&, EnumerationPosition*) { return false; });
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0]->url, volume.url("root"));
  EXPECT_EQ(records[0]->size, 3);
  EXPECT_EQ(records[0]->fileKind, rawValue(FilesKind::File));
  EXPECT_EQ(records[0]->state, NSControlStateValueOn);
  EXPECT_TRUE(records[0]->canDelete);
  EXPECT_EQ(totals.fileSize, 3);
  EXPECT_EQ(totals.fileNumber, 1);
  EXPECT_EQ(progress, (std::vector<std::pair<std::string, std::int64_t>>{{volume.path("root"), 3}}));
}

TEST_F(Walk, rootThatIsAnEmptyFileIsCountedWithoutARecord) {
  volume.file("root", "");
  runAt(volume.url("root"));
  EXPECT_TRUE(records.empty());
  EXPECT_EQ(totals.fileNumber, 1);
}

TEST_F(Walk, rootThatDoesNotExistGivesZeros) {
  run();
  EXPECT_EQ(doneCount, 1);
  EXPECT_TRUE(records.empty());
  EXPECT_EQ(totals.url, volume.url("root/"));
  EXPECT_EQ(totals.fileNumber + totals.folderNumber + totals.fileSize + totals.folderSize, 0);
}

TEST_F(Walk, rootThatIsAFifoIsNotOpened) {
  ASSERT_EQ(::mkfifo(volume.path("root").c_str(), 0600), 0);
  runAt(volume.url("root"));
  EXPECT_TRUE(records.empty());
}

TEST_F(Walk, rootThatIsALinkToAFolderIsEntered) {
  volume.file("elsewhere/a", "1");
  ASSERT_EQ(::symlink("elsewhere", volume.path("root").c_str()), 0);
  run();
  EXPECT_EQ(names(), Names{"a"});
}

TEST_F(Walk, rootThatLeadsOutOfTheVolumeIsNotEntered) {
  const TemporaryFolder outside;
  outside.file("a", "1");
  ASSERT_EQ(::symlink(outside.path().c_str(), volume.path("root").c_str()), 0);
  run();
  EXPECT_TRUE(records.empty());
}

TEST_F(Walk, rootUnderOtherLettersIsFound) {
  volume.file("Data/Root/a", "1");
  ASSERT_EQ(::symlink("/data/root", volume.path("Root").c_str()), 0);
  run();
  EXPECT_EQ(totals.url, volume.url("root/"));
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0]->url, volume.url("Data/Root/a"));
  EXPECT_EQ(sizeNow(""), 1);
}

TEST_F(Walk, plainFileUnderOtherLettersIsFound) {
  volume.file("Root", "333");
  runAt(volume.url("root"));
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0]->url, volume.url("Root"));
}

TEST_F(Walk, locationThatIsNoFileGivesZeros) {
  runAt(*URL::parse("http://example.org/tmp/"));
  EXPECT_TRUE(records.empty());
  EXPECT_EQ(doneCount, 1);
}

TEST_F(Walk, pathWithoutASchemeGivesZeros) {
  volume.file("root/a", "1");
  runAt(*URL::parse(volume.path("root/")));
  EXPECT_TRUE(records.empty());
  EXPECT_EQ(doneCount, 1);
}

TEST_F(Walk, pathWithANULNamesNothing) {
  volume.file("root/a", "1");
  runAt(*URL::parse(volume.url("root").absoluteString() + "%00/b/"));
  EXPECT_TRUE(records.empty());
  EXPECT_EQ(doneCount, 1);
}

// Stopping

TEST_F(Walk, suspendedFeatureWalksNothing) {
  volume.file("root/a", "1");
  SuperScanService::scanStatus.set(kFeature, ScanState::suspend);
  run();
  EXPECT_EQ(doneCount, 1);
  EXPECT_TRUE(records.empty());
}

TEST_F(Walk, suspendedScanIDWalksNothing) {
  volume.file("root/a", "1");
  SuperScanService::scanStatus.set(kScanID, ScanState::suspend);
  run();
  EXPECT_EQ(doneCount, 1);
  EXPECT_TRUE(records.empty());
}

TEST_F(Walk, stopInMidWalkDeliversWhatWasFound) {
  for (const char* name : {"root/a", "root/b", "root/c/d"}) volume.file(name, "1");
  run(0, [&](const URL& url, const ResourceValues&, EnumerationPosition*) {
    if (url.lastPathComponent() == "b") SuperScanService::scanStatus.set(kFeature, ScanState::suspend);
    return true;
  });
  EXPECT_EQ(names(), (Names{"a", "b"}));
  EXPECT_EQ(totals.fileNumber, 2);
  EXPECT_EQ(doneCount, 1);
}

TEST_F(Walk, folderWhoseSumAStopBrokeOffHasNoRecord) {
  volume.file("root/a/x", "1");
  volume.file("root/b/c/x", "1");
  volume.file("root/b/c/y", "1");
  volume.file("root/b/d", "1");
  run(
      0,
      [&](const URL& url, const ResourceValues&, EnumerationPosition*) {
        if (url.lastPathComponent() == "x" && url.path().ends_with("b/c/x"))
          SuperScanService::scanStatus.set(kFeature, ScanState::suspend);
        return true;
      },
      true);
  EXPECT_EQ(names(), (Names{"a/", "a/x", "b/c/x", "b/d"}));
  EXPECT_EQ(record("a/")->size, 1);
  EXPECT_EQ(totals.folderNumber, 1);
  EXPECT_EQ(totals.folderSize, 1);
  for (std::size_t i = 0; i < records.size(); ++i) EXPECT_EQ(records[i]->finderID, static_cast<Integer>(i));
}

TEST_F(Walk, prunedFolderThatAStopKeptFromBeingSizedHasNoRecord) {
  for (const char* name : {"root/a/x", "root/b/x", "root/c"}) volume.file(name, "1");
  run(0, [&](const URL& url, const ResourceValues&, EnumerationPosition* position) {
    position->skipDescendants();
    if (url.lastPathComponent() == "c") SuperScanService::scanStatus.set(kFeature, ScanState::suspend);
    return true;
  });
  EXPECT_EQ(names(), Names{"c"});
  EXPECT_EQ(totals.folderNumber, 0);
}

TEST_F(Walk, folderThatWasReadBeforeTheStopKeepsItsRecord) {
  volume.file("root/a/x", "1");
  volume.file("root/b/x", "1");
  run(0, [&](const URL& url, const ResourceValues&, EnumerationPosition*) {
    if (url.path().ends_with("b/x")) SuperScanService::scanStatus.set(kFeature, ScanState::suspend);
    return true;
  });
  EXPECT_EQ(names(), (Names{"a/", "a/x", "b/", "b/x"}));
  EXPECT_EQ(record("b/")->size, 1);
}

TEST_F(Walk, folderThatTheErrorHandlerKeptFromBeingReadHasNoRecord) {
  volume.file("root/a/x", "1");
  volume.file("root/b/x", "1");
  errorHandler = [](const URL&, int) { return false; };
  run(
      0,
      [&](const URL& url, const ResourceValues&, EnumerationPosition*) {
        // The folder vanishes between its listing and its turn.
        if (url.lastPathComponent() == "b") {
          ::unlink(volume.path("root/a/x").c_str());
          ::rmdir(volume.path("root/a").c_str());
        }
        return true;
      },
      true);
  EXPECT_EQ(names(), Names{"a/"});
}

TEST_F(Walk, errorHandlerMayEndTheWalk) {
  volume.file("root/a/x", "1");
  for (int i = 0; i < 3; ++i) volume.file("root/z" + std::to_string(i) + "/x", "1");
  errorHandler = [](const URL&, int) { return false; };
  int asked = 0;
  run(0, [&](const URL& url, const ResourceValues&, EnumerationPosition*) {
    ++asked;
    // The folder vanishes between its listing and its turn.
    if (url.lastPathComponent() == "z0") {
      ::unlink(volume.path("root/a/x").c_str());
      ::rmdir(volume.path("root/a").c_str());
    }
    return true;
  });
  EXPECT_EQ(asked, 4);
}

}  // namespace
}  // namespace sorrel::test
