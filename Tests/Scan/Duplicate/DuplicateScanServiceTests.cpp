#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <thread>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Units/StreamFileHash.hpp"
#include "Tests/Support/DuplicateKit.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/VirtualClock.hpp"

namespace sorrel {
namespace {

using Groups = test::DuplicateGroups;
using test::DuplicateScan;
using test::ScanRecord;
using test::TemporaryVolume;
using test::operator""_B;  // NOLINT(misc-unused-using-decls): clang-tidy overlooks literals

// The initial value, before any test sets it.
const Integer kDefaultLimit = DuplicateScanService::limitSize;

TEST_F(DuplicateScan, filesBehindAnAbsoluteLinkOfTheVolumeAreComparedThere) {
  const test::TemporaryFolder machine;  // whose equal files have the paths of two others on the volume
  for (const std::string name : {"p", "q"}) {
    machine.file(name, "same");
    volume.file(machine.path(name).substr(1), name + "...");
  }
  volume.link("Users/alice/Ext", machine.path());
  run({volume.url("Users/alice/Ext/")});
  EXPECT_EQ(groups(), Groups());
}

TEST_F(DuplicateScan, pathOfAScanLeadsWhereTheVolumesOwnSystemFindsIt) {
  volume.file("Data/x/one", "same");
  volume.file("Data/x/two", "same");
  volume.link("Users/alice/Ext", "/Data/x");
  volume.link("Users/alice/Rel", "../../Data/x");
  for (const std::string path : {"Users/alice/Ext/", "users/ALICE/rel/", "Users/alice/Ext/../X/"}) {
    ScanRecord record;
    start(record, {volume.url(path)});
    ASSERT_TRUE(record.waitUntilDone());
    EXPECT_EQ(groupsBelow(""), (Groups{{"Data/x/one", "Data/x/two"}})) << path;
  }
}

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
  std::optional<ScanState> atDone;
  scan.onDone = [&atDone] { atDone = SuperScanService::scanStatus.get(7); };
  start(scan, {});
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_EQ(atDone, ScanState::end);
  EXPECT_TRUE(scan.percents.empty());
  EXPECT_EQ(scan.treeSize, 0);
  EXPECT_EQ(SuperScanService::scanStatus.get(7), ScanState::end);
  EXPECT_EQ(SuperScanService::percentService.get()->currentStep, 4);
  ASSERT_TRUE(scan.waitUntilDone());  // the bar runs to its end by itself
  EXPECT_EQ(scan.percents, std::vector<float>{1.0F});
  EXPECT_TRUE(logText().ends_with("DuplicateScanService Finish-0\n"));
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

TEST_F(DuplicateScan, userLibraryIsNotEnteredInAnotherLetterCase) {
  volume.file("Users/alice/library/Folder/a", "same");
  volume.file("Users/bob/LIBRARY/Folder/b", "same");
  volume.file("Users/alice/else", "1");
  run({volume.url("Users/")});
  EXPECT_TRUE(groups().empty());
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

TEST_F(DuplicateScan, secondScanWhileOneRunsDoesNothing) {
  SuperScanService::scanStatus.set(7, ScanState::start);
  start(scan, {volume.url("Users/alice/Data/")});
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
  // The first refused task of the queue waits, and at that moment the user stops.
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
  EXPECT_EQ(StreamFileHashUnit::shard().scanState, static_cast<int>(ScanState::start));
  EXPECT_EQ(groups().size(), 1U);
}

TEST_F(DuplicateScan, queueThatIsShutDownEndsTheScanSilently) {
  volume.file("Users/alice/Data/a", "same");
  scan.queue->refuseAll(WeftRunError::ShutDown);
  start(scan, {volume.url("Users/alice/Data/")});
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
  EXPECT_TRUE(logText().ends_with("MMTest Scan Done\n"));
}

TEST_F(DuplicateScan, placeWithManyCandidatesLosesNone) {
  for (int i = 0; i < 1500; ++i) volume.file("Users/alice/Data/" + std::to_string(i), "same");
  runData();
  ASSERT_EQ(groups().size(), 1U);
  EXPECT_EQ(groups()[0].size(), 1500U);
}

}  // namespace
}  // namespace sorrel
