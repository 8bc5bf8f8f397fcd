#include "SorrelFramework/Scan/FinderRun.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <optional>

#include "Tests/Support/DuplicateKit.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/ReplacedRead.hpp"

namespace sorrel {
namespace {

using Names = std::vector<std::string>;
using Groups = test::DuplicateGroups;
using test::DuplicateStages;
using test::ScanRecord;

FinderRun::Plan planOf(FinderRun::DoneFunc done) {
  return {std::move(done), "Finish", std::string(DuplicateScanService::kStopLog)};
}

// Steps of the bar.

TEST_F(DuplicateStages, scanWithFolderCandidatesTakesFourSteps) {
  twinFolders();
  run();
  EXPECT_EQ(percent->totalStep, 4);
  EXPECT_EQ(steps(), 4);
  EXPECT_EQ(scan.percents.back(), 1.0F);
}

TEST_F(DuplicateStages, scanWithoutFolderCandidatesTakesThree) {
  twinFiles();
  run();
  EXPECT_EQ(groups(), Groups{Names({"x", "y"})});
  EXPECT_EQ(percent->totalStep, 4);
  EXPECT_EQ(steps(), 3);
  EXPECT_EQ(scan.percents.back(), 1.0F);
}

TEST_F(DuplicateStages, candidatesThatAreAllDroppedStillTakeTheStepOfTheFolderHash) {
  const auto bar = std::make_shared<PercentService>(scan.percent(), 4);
  analyse({}, {{4, {folder("One", "aaaa", {4}), folder("Two", "aaaa")}}}, bar);
  EXPECT_TRUE(groups().empty());
  EXPECT_EQ(bar->currentStep, 3);
}

TEST_F(DuplicateStages, barMovesWhileTheScanRuns) {
  twinFiles();
  std::promise<void> hasMoved;
  queue->number = 1;
  queue->act = [moved = hasMoved.get_future().share()] { moved.wait(); };
  start(scan);
  EXPECT_TRUE(test::runMainLoopUntil([this] { return !scan.percents.empty(); }));
  hasMoved.set_value();
  ASSERT_TRUE(scan.waitUntilDone());
  EXPECT_FLOAT_EQ(scan.percents.front(), 0.2F / 4.0F);
}

// Stops. The queue gets the candidates, the end of the walk, the hashes of folders, those of files.

TEST_F(DuplicateStages, stopBeforeTheWalkEndsWithoutATree) {
  twinFolders();
  twinFiles();
  runWithAStopAt(1);
  expectStoppedWithoutATree();
  EXPECT_EQ(steps(), 1);
}

TEST_F(DuplicateStages, stopAtTheEndOfTheWalkEndsWithoutATree) {
  twinFolders();
  twinFiles();
  const test::ReplacedRead reads;
  runWithAStopAt(2);
  expectStoppedWithoutATree();
  EXPECT_EQ(steps(), 1);
  EXPECT_TRUE(reads.notes().empty());
}

TEST_F(DuplicateStages, stopAtTheEndOfTheFolderHashEndsWithoutATree) {
  twinFolders();
  twinFiles();
  runWithAStopAt(3);
  expectStoppedWithoutATree();
  EXPECT_EQ(steps(), 3);
  EXPECT_EQ(queue->count, 3);  // no file hash was begun
}

TEST_F(DuplicateStages, stopAtTheEndOfTheFileHashEndsWithoutATree) {
  twinFolders();
  twinFiles();
  runWithAStopAt(4);
  expectStoppedWithoutATree();
  EXPECT_EQ(queue->count, 4);
}

TEST_F(DuplicateStages, stopWithinTheFolderHashReadsNoFileAfterIt) {
  twinFolders();
  twinFiles();
  const test::ReplacedRead reads([this](std::size_t number) {
    if (number == 0) stop();
    return 0;
  });
  run();
  expectStoppedWithoutATree();
  // Each thread of the hash may have one read in progress.
  EXPECT_LE(reads.notes().size(), 2U);
}

TEST_F(DuplicateStages, stopWithinTheFileHashEndsWithoutATree) {
  twinFiles();
  const test::ReplacedRead reads([this](std::size_t number) {
    if (number == 0) stop();
    return 0;
  });
  run();
  expectStoppedWithoutATree();
}

TEST_F(DuplicateStages, manyPlacesThatAreStoppedEndOnce) {
  std::vector<URL> places;
  for (int i = 0; i < 20; ++i) {
    const std::string place = std::string(kData) + std::to_string(i) + '/';
    volume.file(place + "a", "same");
    places.push_back(volume.url(place));
  }
  queue->number = 1;
  queue->act = [this] { stop(); };
  DuplicateScanService::scanDuplicate(*feature, places, scan.progress(), scan.percent(), scan.singleDone(),
                                      scan.treeDone(), scan.queue);
  ASSERT_TRUE(scan.waitUntilDone());
  // The last walk has released the scan.
  ASSERT_TRUE(test::runMainLoopUntil([this] { return queue.use_count() == 2; }));
  expectStoppedWithoutATree();
}

/// Stops at the first submission, and holds the second one back until the stop was reported.
class WaitingQueue : public test::RecordingQueue {
 public:
  void submit(Task task, Failure failure) override {
    const int number = ++count;
    if (number == 1) stop();
    if (number == 2)
      isTold = told.get_future().wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    test::RecordingQueue::submit(std::move(task), std::move(failure));
  }
  std::function<void()> stop;
  std::promise<void> told;
  std::atomic<int> count{0};
  std::atomic<bool> isTold = false;
};

TEST_F(DuplicateStages, stopIsToldWhileOtherPlacesAreWalked) {
  const auto waiting = std::make_shared<WaitingQueue>();
  waiting->stop = [this] { stop(); };
  scan.queue = waiting;
  scan.onDone = [&waiting] { waiting->told.set_value(); };
  std::vector<URL> places;
  for (const std::string place : {"One/", "Two/"}) {
    volume.folder(std::string(kData) + place);
    places.push_back(volume.url(std::string(kData) + place));
  }
  DuplicateFixture::start(scan, places);
  ASSERT_TRUE(scan.waitUntilDone());
  ASSERT_TRUE(test::runMainLoopUntil([&] { return waiting.use_count() == 2; }));  // the last place has let go
  EXPECT_TRUE(waiting->isTold);
  expectStoppedWithoutATree();
}

// A new scan behind a stop.

TEST_F(DuplicateStages, newScanEndsTheOneThatHasNotSeenItsStop) {
  twinFiles();
  volume.file("Users/alice/Other/a", "123");
  volume.file("Users/alice/Other/b", "123");
  ScanRecord second;
  std::promise<void> oldIsDone;
  std::optional<ScanState> statusAfterTheOld;
  scan.onDone = [&] { oldIsDone.set_value(); };
  second.queue->submit(
      [&, done = oldIsDone.get_future().share()] {
        done.wait();
        statusAfterTheOld = SuperScanService::scanStatus.get(kFeature);
      },
      {});
  queue->number = 1;  // the old scan is behind its walk
  queue->act = [&] {
    SuperScanService::stopScan(*feature);
    start(second, "Users/alice/Other/");
  };
  start(scan);
  ASSERT_TRUE(second.waitUntilDone());
  ASSERT_TRUE(test::runMainLoopUntil([this] { return queue.use_count() == 2; }));  // the old one is over
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_EQ(scan.treeSize, 0);
  EXPECT_EQ(second.doneCount, 1);
  EXPECT_EQ(second.treeSize, 6);
  EXPECT_EQ(statusAfterTheOld, ScanState::start);  // a third one would not have begun
  EXPECT_EQ(SuperScanService::scanStatus.get(kFeature), ScanState::end);
}

TEST_F(DuplicateStages, runThatIsReplacedLeavesTheEntryToTheNewOne) {
  int ended = 0;
  const auto done = [&ended](FeatureInformation&, std::int64_t size) { ended += size == 0 ? 1 : 100; };
  const auto begin = [&] { return std::make_shared<FinderRun>(*feature, scan.queue, nullptr, planOf(done)); };
  SuperScanService::scanStatus.set(kFeature, ScanState::start);
  const auto old = begin();
  EXPECT_FALSE(old->isStopped());
  const auto next = begin();
  EXPECT_TRUE(old->isReplaced());
  EXPECT_TRUE(old->isStopped());
  EXPECT_TRUE(old->endsByStop());
  EXPECT_TRUE(old->endsByStop());
  EXPECT_EQ(ended, 1);
  const std::string text = logText();
  EXPECT_TRUE(text.ends_with(":Info>:DuplicateScanService stopDuplicate Supend\n"));
  EXPECT_EQ(std::ranges::count(text, '\n'), 1);
  EXPECT_EQ(SuperScanService::scanStatus.get(kFeature), ScanState::start);
  EXPECT_FALSE(next->endsByStop());
  next->finish(5);
  EXPECT_EQ(ended, 101);
  EXPECT_EQ(SuperScanService::scanStatus.get(kFeature), ScanState::end);
}

TEST_F(DuplicateStages, entryReadsEndWhenAStoppedRunTellsIt) {
  std::optional<ScanState> atDone;
  const auto done = [&atDone](FeatureInformation&, std::int64_t) {
    atDone = SuperScanService::scanStatus.get(kFeature);
  };
  FinderRun run(*feature, scan.queue, nullptr, planOf(done));
  SuperScanService::scanStatus.set(kFeature, ScanState::suspend);
  EXPECT_TRUE(run.endsByStop());
  EXPECT_EQ(atDone, ScanState::end);
}

TEST_F(DuplicateStages, runThatIsReplacedAtItsVeryEndIsDoneAndLeavesTheEntryToTheNewOne) {
  std::int64_t told = 0;
  const auto done = [&told](FeatureInformation&, std::int64_t size) { told = size; };
  SuperScanService::scanStatus.set(kFeature, ScanState::start);
  FinderRun old(*feature, scan.queue, nullptr, planOf(done));
  const FinderRun next(*feature, scan.queue, nullptr, planOf({}));
  old.finish(5);
  EXPECT_EQ(told, 5);
  EXPECT_EQ(SuperScanService::scanStatus.get(kFeature), ScanState::start);
}

TEST_F(DuplicateStages, runOfAnotherFeatureReplacesNothing) {
  const auto other = test::makeFeature(kFeature + 1, {{CategoryInfomationKind::Common, {}}});
  const FinderRun one(*feature, scan.queue, nullptr, planOf({}));
  const FinderRun two(*other, scan.queue, nullptr, planOf({}));
  EXPECT_FALSE(one.isReplaced());
}

TEST_F(DuplicateStages, runThatSawAStopStaysStopped) {
  int ended = 0;
  FinderRun one(*feature, scan.queue, nullptr,
                planOf([&ended](FeatureInformation&, std::int64_t) { ++ended; }));
  EXPECT_FALSE(one.endsByStop());
  SuperScanService::scanStatus.set(kFeature, ScanState::suspend);
  EXPECT_TRUE(one.isStopped());
  SuperScanService::scanStatus.set(kFeature, ScanState::end);
  EXPECT_TRUE(one.isStopped());
  EXPECT_TRUE(one.endsByStop());
  EXPECT_TRUE(one.endsByStop());
  EXPECT_EQ(ended, 1);
}

// The limit.

TEST_F(DuplicateStages, limitIsGivenInKibibytes) {
  DuplicateScanService::limitSize = 512;
  EXPECT_EQ(DuplicateScanService::limitInBytes(), 524288);
  DuplicateScanService::limitSize = -1;
  EXPECT_EQ(DuplicateScanService::limitInBytes(), -1024);
}

TEST_F(DuplicateStages, limitThatDoesNotFitIsAFatalStop) {
  DuplicateScanService::limitSize = INT64_MAX / 1024;
  EXPECT_EQ(DuplicateScanService::limitInBytes(), INT64_MAX - 1023);
  ++DuplicateScanService::limitSize;
  EXPECT_EQ(test::inChild([] { return std::to_string(DuplicateScanService::limitInBytes()); }),
            "ended by signal 6");
}

}  // namespace
}  // namespace sorrel
