#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <thread>

#include "SorrelFramework/Platform/Host.hpp"
#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Units/LogService.hpp"
#include "SorrelFramework/Units/StreamFileHash.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/ScanKit.hpp"
#include "Tests/Support/TemporaryVolume.hpp"
#include "Tests/Support/VirtualClock.hpp"

namespace sorrel {
namespace {

using test::ScanRecord;
using test::ScanVolume;
using test::TemporaryVolume;
using test::operator""_B;
using Names = std::vector<std::string>;
using Groups = std::vector<Names>;
using Kind = DuplicateScanService::DuplicateKind;

// As they are before anybody sets them.
const Integer kDefaultLimit = DuplicateScanService::limitSize;

const std::map<Integer, std::string> kTitles = {{0, "File"},    {1, "Folder"}, {2, "Document"}, {3, "Media"},
                                                {4, "Picture"}, {5, "Other"},  {6, "Archive"}};

class DuplicateScan : public testing::Test {
 protected:
  DuplicateScan() {
    SuperScanService::scanStatus.resetForTesting();
    volume.install();
    LogService::resetForTesting();
    DuplicateScanService::limitSize = 0;
    DuplicateScanService::childrenCateogryDict = kTitles;
    feature = test::makeFeature(7, {{CategoryInfomationKind::Common, {}}});
  }
  ~DuplicateScan() override {
    SuperScanService::percentService.exchange(nullptr);  // it tells a record that goes away now
    DuplicateScanService::limitSize = 512;
    DuplicateScanService::childrenCateogryDict.clear();
  }

  void start(const std::vector<URL>& paths) {
    DuplicateScanService::scanDuplicate(*feature, paths, scan.progress(), scan.percent(), scan.singleDone(),
                                        scan.treeDone(), scan.queue, WeftQOS::UserInitiated);
  }
  void run(const std::vector<URL>& paths) {
    start(paths);
    ASSERT_TRUE(scan.waitUntilDone());
  }
  void runHome() { run({volume.url("Users/alice/")}); }
  void runData() { run({volume.url("Users/alice/Data/")}); }
  /// All threads of the process act as somebody who has no special rights.
  void runDataAsPlainUser() {
    volume.setMode(".", 0755);
    const uid_t own = ::geteuid();
    ASSERT_EQ(::seteuid(own == 0 ? test::kPlainUser : own), 0);
    runData();
    ASSERT_EQ(::seteuid(own), 0);
  }

  [[nodiscard]] CategoryInformation& all() const { return feature->categoryInfo[0]; }
  [[nodiscard]] const CategoryInformation& child(Kind kind) const {
    return (*all().childrenCateogry)[static_cast<std::size_t>(rawValue(kind))];
  }
  /// Names of the groups' members below the home.
  [[nodiscard]] Groups groups() const {
    Groups found;
    for (const FileInformation& header : all().childrens)
      found.push_back(test::namesOf(header.childrens.refs(), volume.url("Users/alice/")));
    return found;
  }
  [[nodiscard]] std::string logText() const {
    LogService::shard().flushForTesting();
    return test::contentOf(LogService::shard().logPath.path());
  }

  TemporaryVolume volume;
  ScanRecord scan;
  Ref<FeatureInformation> feature;
};

TEST_F(DuplicateScan, filesWithTheSameContentAreOneGroupWhateverTheyAreCalled) {
  volume.file("Users/alice/Data/a.txt", "same");
  volume.file("Users/alice/Data/deep/er/b.bin", "same");
  volume.file("Users/alice/Data/c", "same");
  volume.file("Users/alice/Data/d", "else");
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/a.txt", "Data/c", "Data/deep/er/b.bin"}}));
  EXPECT_EQ(scan.treeSize, 12);
  EXPECT_EQ(scan.doneCount, 1);
}

TEST_F(DuplicateScan, filesOfOneSizeWithOtherContentAreNoGroup) {
  volume.file("Users/alice/Data/a", "1234");
  volume.file("Users/alice/Data/b", "4321");
  runData();
  EXPECT_TRUE(groups().empty());
  EXPECT_EQ(scan.treeSize, 0);
}

TEST_F(DuplicateScan, onlyWhatIsLargerThanTheLimitTakesPart) {
  DuplicateScanService::limitSize = 512;
  volume.file("Users/alice/Data/a", 524288_B);
  volume.file("Users/alice/Data/b", 524288_B);
  volume.file("Users/alice/Data/c", 524289_B);
  volume.file("Users/alice/Data/d", 524289_B);
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/c", "Data/d"}}));
}

TEST_F(DuplicateScan, limitIsHalfAMebibyteByDefault) { EXPECT_EQ(kDefaultLimit * 1024, 524288); }

TEST_F(DuplicateScan, noPathsAtAllEndWithFourStepsAndDoneWithZero) {
  start({});
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_EQ(scan.treeSize, 0);
  EXPECT_EQ(SuperScanService::scanStatus.get(7), ScanState::end);
  EXPECT_EQ(SuperScanService::percentService.get()->currentStep, 4);
  ASSERT_TRUE(scan.waitUntilDone());  // the bar runs to its end by itself
  EXPECT_EQ(scan.percents, std::vector<float>{1.0F});
  EXPECT_TRUE(logText().find("DuplicateScanService Finish-0\n") != std::string::npos);
}

TEST_F(DuplicateScan, twinFoldersAreOneGroupAndTheirFilesNone) {
  for (const std::string top : {"One", "Two"}) {
    volume.file("Users/alice/Data/" + top + "/a", "aaaa");
    volume.file("Users/alice/Data/" + top + "/sub/b", "bbbbb");
  }
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/", "Data/Two/"}}));
  EXPECT_EQ(all().childrens[0].fileKind, rawValue(FilesKind::Folder));
  EXPECT_EQ(scan.treeSize, 18);
}

TEST_F(DuplicateScan, foldersWithOtherContentOfTheSameSizesAreNoTwins) {
  volume.file("Users/alice/Data/One/a", "aaaa");
  volume.file("Users/alice/Data/Two/a", "bbbb");
  runData();
  EXPECT_TRUE(groups().empty());
}

TEST_F(DuplicateScan, foldersOfSmallFilesAreTwinsIfTheirSumIsAboveTheLimit) {
  DuplicateScanService::limitSize = 1;
  for (const std::string top : {"One/", "Two/"}) {
    for (const std::string file : {"a", "b", "c"})
      volume.file("Users/alice/Data/" + top + file, std::string(400, file[0]));
  }
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/", "Data/Two/"}}));
}

TEST_F(DuplicateScan, hiddenItemsAreNeitherSeenNorHashed) {
  volume.file("Users/alice/Data/.a", "same");
  volume.file("Users/alice/Data/.hidden/b", "same");
  volume.file("Users/alice/Data/One/c", "same");
  volume.file("Users/alice/Data/Two/c", "same");
  volume.file("Users/alice/Data/Two/.only", "more");
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/", "Data/Two/"}}));
}

TEST_F(DuplicateScan, packageIsNotEnteredByTheWalkButHashedFileByFile) {
  for (const std::string top : {"One/", "Two/"}) {
    volume.file("Users/alice/Data/" + top + "Tool.app/Contents/x", top == "One/" ? "1" : "2");
    volume.file("Users/alice/Data/" + top + "big", "same");
  }
  volume.file("Users/alice/Data/y", "11");
  volume.file("Users/alice/Data/Lone.app/y", "11");
  runData();
  // The folders weigh the same and differ inside their packages; both were read, so their files are left out.
  EXPECT_TRUE(groups().empty());
}

TEST_F(DuplicateScan, twinFoldersWithEqualPackagesAreFound) {
  for (const std::string top : {"One/", "Two/"}) volume.file("Users/alice/Data/" + top + "T.app/x", "1");
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/", "Data/Two/"}}));
}

TEST_F(DuplicateScan, foldersBelowACacheAreNotEntered) {
  volume.file("Users/alice/Data/Caches/deep/a", "same");
  volume.file("Users/alice/Data/b", "same");
  runData();
  EXPECT_TRUE(groups().empty());
}

TEST_F(DuplicateScan, letterCaseOfCacheCounts) {
  volume.file("Users/alice/Data/caches/a", "same");
  volume.file("Users/alice/Data/b", "same");
  runData();
  EXPECT_EQ(groups().size(), 1U);
}

TEST_F(DuplicateScan, nameOfTheVolumeDoesNotMakeItACache) {
  TemporaryVolume outer;
  outer.file("Cache/Users/alice/Data/sub/a", "same");
  outer.file("Cache/Users/alice/Data/b", "same");
  Host::install(Host::macVolume(outer.path("Cache"), "alice", {"org.example.scan", "", {}}));
  run({outer.url("Cache/Users/alice/Data/")});
  EXPECT_EQ(all().childrens.size(), 1U);
}

TEST_F(DuplicateScan, userLibraryIsWeighedAndNotEnteredUnlessAskedFor) {
  volume.file("Users/alice/Library/Folder/a", "same");
  volume.file("Users/bob/Library/Folder/b", "same");
  volume.file("Users/bob/else", "1");
  run({volume.url("Users/")});
  EXPECT_TRUE(groups().empty());

  ScanRecord again;
  DuplicateScanService::scanDuplicate(
      *feature, {volume.url("Users/alice/Library/"), volume.url("Users/bob/Library/")}, again.progress(),
      again.percent(), again.singleDone(), again.treeDone(), again.queue);
  ASSERT_TRUE(again.waitUntilDone());
  EXPECT_EQ(all().childrens.size(), 1U);
}

TEST_F(DuplicateScan, pathWithFewComponentsStandsForWhatLiesInIt) {
  volume.file("Users/alice/one/a", "same");
  volume.file("Users/alice/two/a", "same");
  volume.file("Users/alice/.hidden/a", "same");
  runHome();
  EXPECT_EQ(groups(), (Groups{{"one/", "two/"}}));
}

TEST_F(DuplicateScan, linkInAFolderThatStandsForItsEntriesIsNoCopyOfWhatItLeadsTo) {
  volume.file("Users/alice/one/a", "same");
  volume.link("Users/alice/current", "one");
  volume.link("Users/alice/current.txt", "one/a");
  runHome();
  EXPECT_TRUE(groups().empty());
}

TEST_F(DuplicateScan, linksAndSpecialFilesTakeNoPart) {
  volume.file("Users/alice/Data/a", "same");
  volume.link("Users/alice/Data/b", "same");  // its text is as long as the file
  volume.link("Users/alice/Data/c", "a");
  volume.fifo("Users/alice/Data/pipe");
  runData();
  EXPECT_TRUE(groups().empty());
}

TEST_F(DuplicateScan, foldersWhoseLinksLeadElsewhereAreNoCopiesOfEachOther) {
  for (const std::string top : {"One/", "Two/", "Three/", "Four/"}) {
    const bool isSame = top == "Three/" || top == "Four/";
    volume.file("Users/alice/Data/" + top + "a", isSame ? "twins" : "same");
    volume.link("Users/alice/Data/" + top + "link", isSame || top == "One/" ? "x" : "y");
  }
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/Four/", "Data/Three/"}, {"Data/One/a", "Data/Two/a"}}));
}

TEST_F(DuplicateScan, ofTwinsOfTwoSizesWithTheSameHashesTheLargestAreFound) {
  // A package weighs as its type says, the hashes are those of the files in it.
  for (const std::string top : {"One/T.app/", "Two/T.app/", "Three/", "Four/"}) {
    volume.file("Users/alice/Data/" + top + "a", "aaaa");
    volume.file("Users/alice/Data/" + top + "b", "bbbb");
  }
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/", "Data/Two/"}}));
}

TEST_F(DuplicateScan, filesOfTwinsAreKnownAgainWhateverBytesAreInTheirNames) {
  for (const std::string top : {"One/", "Two/"}) {
    for (const std::string name :
         {"a b", "%41", "semi;colon", "\xC3\xBC", "\x75\xCC\x88", "\xFF\xFE", "#?", "back\\slash"})
      volume.file("Users/alice/Data/" + top + "deep " + name + "/" + name, name + name);
  }
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/", "Data/Two/"}}));
}

TEST_F(DuplicateScan, placeThatIsGivenTwiceIsNoCopyOfItself) {
  volume.file("Users/alice/Data/a", "same");
  volume.file("Users/alice/Data/sub/x", "1");
  run({volume.url("Users/alice/Data/"), volume.url("Users/alice/Data/")});
  EXPECT_TRUE(groups().empty());
}

TEST_F(DuplicateScan, placeAndALinkToItAreNoCopiesOfEachOther) {
  volume.file("Users/alice/Data/a", "same");
  volume.file("Users/alice/Data/sub/b", "more");
  volume.file("Users/alice/Data/sub/c", "more");
  volume.link("Users/alice/Link", "Data");
  run({volume.url("Users/alice/Link/"), volume.url("Users/alice/Data/")});
  EXPECT_EQ(groups(), (Groups{{"Data/sub/b", "Data/sub/c"}}));
}

TEST_F(DuplicateScan, scanPathMayBeAFile) {
  run({URL::fileURL(volume.file("Users/alice/Data/a", "same"), false),
       URL::fileURL(volume.file("Users/alice/Data/b", "same"), false)});
  EXPECT_EQ(groups(), (Groups{{"Data/a", "Data/b"}}));
}

TEST_F(DuplicateScan, pathThatIsMissingAddsNothing) {
  run({volume.url("Users/alice/Data/none/")});
  EXPECT_TRUE(groups().empty());
  EXPECT_EQ(scan.doneCount, 1);
}

TEST_F(DuplicateScan, subfoldersOfTwinsAreNoGroupsOfTheirOwn) {
  for (const std::string top : {"One/", "Two/"}) {
    volume.file("Users/alice/Data/" + top + "sub/a", "aaaa");
    volume.file("Users/alice/Data/" + top + "b", "bb");
  }
  volume.file("Users/alice/Data/Three/sub/a", "aaaa");  // a twin of the covered ones
  runData();
  ASSERT_EQ(groups().size(), 1U);
  EXPECT_EQ(groups()[0], (Names{"Data/One/", "Data/Two/"}));
}

TEST_F(DuplicateScan, folderIsNoTwinOfTheOneFolderInIt) {
  volume.file("Users/alice/Data/Outer/Inner/a", "aaaa");
  runData();
  EXPECT_TRUE(groups().empty());
}

TEST_F(DuplicateScan, filesOfAFolderThatWasReadAreLeftOutWhetherOrNotItFoundATwin) {
  // One and Two have the same sizes and numbers and differ; the files of both were read with them.
  volume.file("Users/alice/Data/One/a", "aaaa");
  volume.file("Users/alice/Data/One/b", "bbbb");
  volume.file("Users/alice/Data/Two/a", "cccc");
  volume.file("Users/alice/Data/Two/b", "dddd");
  volume.file("Users/alice/Data/a", "aaaa");
  volume.file("Users/alice/Data/a2", "aaaa");
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/a", "Data/a2"}}));
}

TEST_F(DuplicateScan, fileOfAFolderWithOneFileAndNoTwinIsStillHashedAsAFile) {
  volume.file("Users/alice/Data/One/a", "aaaa");
  volume.file("Users/alice/Data/Two/a", "bbbb");
  volume.file("Users/alice/Data/a", "aaaa");
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/a", "Data/a"}}));
}

TEST_F(DuplicateScan, foldersWithAFileThatCannotBeReadAreNoCopiesOfEachOther) {
  for (const std::string top : {"One/", "Two/"}) {
    volume.file("Users/alice/Data/" + top + "a", "aaaa");
    volume.file("Users/alice/Data/" + top + "b", top == "One/" ? "1" : "2");
    volume.setMode("Users/alice/Data/" + top + "b", 0);
    volume.file("Users/alice/Data/Open " + top + "a", "bbbbbb");
  }
  runDataAsPlainUser();
  EXPECT_EQ(groups(), (Groups{{"Data/Open One/", "Data/Open Two/"}, {"Data/One/a", "Data/Two/a"}}));
}

TEST_F(DuplicateScan, foldersWithAFolderThatCannotBeReadAreNoCopiesOfEachOther) {
  for (const std::string top : {"One/", "Two/"}) {
    volume.file("Users/alice/Data/" + top + "a", "aaaa");
    volume.file("Users/alice/Data/" + top + "closed/b", top == "One/" ? "1" : "2");
    volume.setMode("Users/alice/Data/" + top + "closed", 0);
    volume.file("Users/alice/Data/Open " + top + "a", "bbbbbb");
  }
  runDataAsPlainUser();
  for (const std::string top : {"One/", "Two/"}) volume.setMode("Users/alice/Data/" + top + "closed", 0755);
  EXPECT_EQ(groups(), (Groups{{"Data/Open One/", "Data/Open Two/"}, {"Data/One/a", "Data/Two/a"}}));
}

TEST_F(DuplicateScan, orderInWhichFilesWereMadeDoesNotMatter) {
  volume.file("Users/alice/Data/One/a", "aaaa");
  volume.file("Users/alice/Data/One/b", "bbb");
  volume.file("Users/alice/Data/Two/b", "bbb");
  volume.file("Users/alice/Data/Two/a", "aaaa");
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/", "Data/Two/"}}));
}

TEST_F(DuplicateScan, manyGroupsComeInTheSameOrderEveryTime) {
  for (int i = 0; i < 100; ++i) {
    const std::string content(static_cast<std::size_t>(1 + i % 10), static_cast<char>('A' + i % 50));
    volume.file("Users/alice/Data/" + std::to_string(i), content);
    volume.file("Users/alice/Data/copy " + std::to_string(i), content);
  }
  runData();
  const Groups first = groups();
  EXPECT_GT(first.size(), 10U);
  for (int i = 0; i < 5; ++i) {
    scan.doneCount = 0;
    scan.percents.clear();
    runData();
    EXPECT_EQ(groups(), first);
  }
}

TEST_F(DuplicateScan, headerStandsForItsMembers) {
  volume.file("Users/alice/Data/a.png", "12345");
  volume.file("Users/alice/Data/b.png", "12345");
  all().finderID = 3;
  runData();
  ASSERT_EQ(all().childrens.size(), 1U);
  const FileInformation& header = all().childrens[0];
  EXPECT_EQ(header.state, NSControlStateValueOff);
  EXPECT_EQ(header.finderID, 0);
  EXPECT_EQ(header.parentFinderID, 3);
  EXPECT_EQ(header.title, header.childrens[0].title);
  EXPECT_EQ(header.size, 10);
  EXPECT_TRUE(header.url.isEmptyPath());
  EXPECT_TRUE(header.canDelete);
  EXPECT_FALSE(header.removeCategory);
  EXPECT_FALSE(header.attachInformation.has_value());
  EXPECT_EQ(header.parentCategoryInfo.get(), &all());
  EXPECT_EQ(header.fileKind, rawValue(FilesKind::File));
  EXPECT_EQ(header.levelInt, 0);
  EXPECT_FALSE(header.parentFileInfo);
  for (Integer i = 0; i < 2; ++i) {
    const FileInformation& member = header.childrens[static_cast<std::size_t>(i)];
    EXPECT_EQ(member.parentFileInfo.get(), &header);
    EXPECT_EQ(member.parentFinderID, 0);
    EXPECT_EQ(member.finderID, i);
    EXPECT_EQ(member.state, NSControlStateValueOff);
    EXPECT_EQ(member.size, 5);
    EXPECT_EQ(member.parentCategoryInfo.get(), &all());
  }
}

TEST_F(DuplicateScan, headersAreSharedByTheRowsOfTheirKinds) {
  volume.file("Users/alice/Data/a.png", "12345");
  volume.file("Users/alice/Data/b.png", "12345");
  volume.file("Users/alice/Data/c.unheard", "1234");
  volume.file("Users/alice/Data/d.unheard", "1234");
  volume.file("Users/alice/Data/One/f", "123");
  volume.file("Users/alice/Data/Two/f", "123");
  runData();
  ASSERT_EQ(all().childrens.size(), 3U);
  const auto rowsOf = [this](std::size_t header) {
    std::set<Integer> rows;
    for (const CategoryInformation& row : *all().childrenCateogry) {
      for (const FileInformation& record : row.childrens)
        if (&record == &all().childrens[header]) rows.insert(row.finderID);
    }
    return rows;
  };
  EXPECT_EQ(rowsOf(0), (std::set<Integer>{0, 4}));
  EXPECT_EQ(rowsOf(1), (std::set<Integer>{0, 5}));
  EXPECT_EQ(rowsOf(2), (std::set<Integer>{1, 5}));
  EXPECT_EQ(child(Kind::File).size, 18);
  EXPECT_EQ(child(Kind::Other).size, 14);
  EXPECT_EQ(scan.treeSize, 24);
}

TEST_F(DuplicateScan, noGroupsLeaveSevenEmptyRows) {
  volume.file("Users/alice/Data/a", "1");
  runData();
  ASSERT_EQ(all().childrenCateogry->size(), 7U);
  Integer kind = 0;
  for (const CategoryInformation& row : *all().childrenCateogry) {
    EXPECT_EQ(row.finderID, kind);
    EXPECT_EQ(row.title, kTitles.at(kind++));
    EXPECT_EQ(row.state, NSControlStateValueOff);
    EXPECT_EQ(row.size, 0);
    EXPECT_EQ(row.description, "");
    EXPECT_EQ(row.kind, rawValue(CategoryInfomationKind::Common));
    EXPECT_TRUE(row.urls.empty());
    EXPECT_TRUE(row.childrens.empty());
    EXPECT_EQ(row.featureInfo.get(), feature.get());
  }
}

TEST_F(DuplicateScan, rescanBeginsWithAnEmptyTree) {
  volume.file("Users/alice/Data/a", "same");
  const std::string copy = volume.file("Users/alice/Data/b", "same");
  runData();
  ASSERT_EQ(groups().size(), 1U);
  ::unlink(copy.c_str());
  scan.doneCount = 0;
  scan.percents.clear();
  runData();
  EXPECT_TRUE(groups().empty());
  EXPECT_TRUE(child(Kind::File).childrens.empty());
}

TEST_F(DuplicateScan, secondScanWhileOneRunsDoesNothing) {
  SuperScanService::scanStatus.set(7, ScanState::start);
  start({volume.url("Users/alice/Data/")});
  EXPECT_EQ(scan.doneCount, 0);
  EXPECT_TRUE(logText().ends_with("DuplicateScanService Scanning\n"));
}

TEST_F(DuplicateScan, logTellsOfTheStages) {
  volume.file("Users/alice/Data/a", "same");
  runData();
  const std::string text = logText();
  const std::size_t entry = text.find("Start Duplicate FeatureInfo:7\n");
  const std::size_t began = text.find("DuplicateScanService Start\n", entry);
  EXPECT_NE(text.find("DuplicateScanService Finish\n", began), std::string::npos);
  EXPECT_EQ(std::ranges::count(text, '\n'), 3);
  std::size_t informed = 0;
  for (std::size_t at = 0; (at = text.find(":Info>:", at)) != std::string::npos; ++at) ++informed;
  EXPECT_EQ(informed, 3U);
}

TEST_F(DuplicateScan, stopWhileTheQueueRefusesEndsWithZeroAndNoTree) {
  volume.file("Users/alice/Data/a", "same");
  volume.file("Users/alice/Data/b", "same");
  // The first refused task of the queue waits, and in that moment the user stops.
  const test::VirtualClock clock([this](std::uint64_t) { SuperScanService::stopScan(*feature); });
  scan.queue->refuseNext(1);
  runData();
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_EQ(scan.treeSize, 0);
  EXPECT_TRUE(groups().empty());
  EXPECT_EQ(SuperScanService::scanStatus.get(7), ScanState::end);
  EXPECT_EQ(StreamFileHashUnit::shard().scanState, static_cast<int>(ScanState::suspend));
  EXPECT_TRUE(logText().find("DuplicateScanService stopDuplicate Supend\n") != std::string::npos);
}

TEST_F(DuplicateScan, scanAfterAStopFindsEverything) {
  volume.file("Users/alice/Data/a", "same");
  volume.file("Users/alice/Data/b", "same");
  SuperScanService::stopScan(*feature);
  runData();
  EXPECT_EQ(groups().size(), 1U);
}

TEST_F(DuplicateScan, queueThatIsShutDownEndsTheScanSilently) {
  volume.file("Users/alice/Data/a", "same");
  scan.queue->refuseAll(WeftRunError::ShutDown);
  start({volume.url("Users/alice/Data/")});
  while (scan.queue->refused() == 0) std::this_thread::yield();
  EXPECT_EQ(scan.doneCount, 0);
}

TEST_F(DuplicateScan, refusedTasksAreSubmittedAgain) {
  volume.file("Users/alice/Data/a", "same");
  volume.file("Users/alice/Data/b", "same");
  const test::VirtualClock clock;
  scan.queue->refuseNext(5);
  runData();
  EXPECT_EQ(groups().size(), 1U);
}

TEST_F(DuplicateScan, pipelineCallsNeitherProgressNorSingleDone) {
  volume.file("Users/alice/Data/a", "same");
  volume.file("Users/alice/Data/b", "same");
  runData();
  EXPECT_TRUE(scan.progressCalls.empty());
  EXPECT_TRUE(scan.singles.empty());
}

TEST_F(DuplicateScan, scanChangesNothingOnDisk) {
  for (const std::string top : {"One/", "Two/"}) volume.file("Users/alice/Data/" + top + "a", "aaaa");
  const auto before = test::snapshotOf(volume.path("Users/alice/Data"));
  runData();
  EXPECT_EQ(test::snapshotOf(volume.path("Users/alice/Data")), before);
}

TEST_F(DuplicateScan, folderHashIsTheHashesOfItsFilesInOrder) {
  volume.file("Users/alice/Data/b", "");
  volume.file("Users/alice/Data/a.app/x", "abc");
  volume.file("Users/alice/Data/.hidden", "abc");
  volume.link("Users/alice/Data/c", "b");
  const auto [text, urls, total, sized] =
      DuplicateScanService::getMD5FromFolderPath(volume.url("Users/alice/Data/"));
  EXPECT_EQ(text, "900150983cd24fb0d6963f7d28e17f72d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(urls,
            (std::vector<URL>{volume.url("Users/alice/Data/a.app/x"), volume.url("Users/alice/Data/b")}));
  EXPECT_EQ(total, 3);
  EXPECT_EQ(sized.size(), 2U);
}

TEST_F(DuplicateScan, experimentalWalkHashesNothingAndTellsOfEachPath) {
  volume.file("Users/alice/Data/One/a", "aaaa");
  volume.file("Users/alice/Data/One/T.app/b", "aaaa");
  volume.file("Users/alice/Data/Two/c", "ccc");
  DuplicateScanService::scanTestAProDuplicate(
      *feature, {volume.url("Users/alice/Data/One/"), volume.url("Users/alice/Data/Two/")}, scan.progress(),
      scan.percent(), scan.singleDone(), scan.treeDone(), scan.queue);
  ASSERT_TRUE(test::runMainLoopUntil([this] {
    const std::lock_guard lock(scan.mutex);
    return scan.singles.size() == 2;
  }));
  ASSERT_TRUE(test::drain(*scan.queue));
  std::ranges::sort(scan.singles);
  EXPECT_EQ(scan.singles, (std::vector<std::pair<Integer, std::int64_t>>{{0, 4}, {1, 3}}));
  EXPECT_EQ(scan.doneCount, 0);
  const std::string text = logText();
  EXPECT_TRUE(text.ends_with("MMTest Scan Done\n"));
  EXPECT_EQ(std::ranges::count(text, '\n'), 1);
}

TEST_F(DuplicateScan, experimentalWalkKeepsWhatIsAboveTheLimitAndSeesNothingHidden) {
  DuplicateScanService::limitSize = 1;
  volume.file("Users/alice/Data/a", 1024_B);
  volume.file("Users/alice/Data/b", 1025_B);
  volume.file("Users/alice/Data/sub/c", 2000_B);
  volume.file("Users/alice/Data/Kit.framework/d", 3000_B);
  volume.file("Users/alice/Data/.e", 4000_B);
  DuplicateScanService::scanTestAProDuplicate(*feature, {volume.url("Users/alice/Data/")}, scan.progress(),
                                              scan.percent(), scan.singleDone(), scan.treeDone(), scan.queue);
  ASSERT_TRUE(test::runMainLoopUntil([this] {
    const std::lock_guard lock(scan.mutex);
    return !scan.singles.empty();
  }));
  ASSERT_TRUE(test::drain(*scan.queue));
  EXPECT_EQ(scan.singles, (std::vector<std::pair<Integer, std::int64_t>>{{0, 3025}}));
}

}  // namespace
}  // namespace sorrel
