// A new scan after a stop, while the previous scan has not ended yet.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "SorrelFramework/Scan/ScanRun.hpp"
#include "SorrelFramework/Units/StreamFileHash.hpp"
#include "Tests/Support/DuplicateKit.hpp"
#include "Tests/Support/HoldingQueue.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/ReplacedRead.hpp"

namespace sorrel {
namespace {

using Groups = test::DuplicateGroups;
using test::ScanRecord;

constexpr std::string_view kOther = "Users/alice/Other/";
constexpr std::string_view kNothing = "Users/alice/Nothing/";

class Restart : public test::DuplicateStages {
 protected:
  Restart() {
    volume.folder(kNothing);
    for (const std::string name : {"a", "b"}) volume.file(std::string(kOther) + name, "123");
  }

  /// The new scan has found its two files, and no result of the old one is left.
  void expectTheTreeOfTheNewScan(const ScanRecord& next) const {
    EXPECT_EQ(next.doneCount, 1);
    EXPECT_EQ(next.treeSize, 6);
    EXPECT_EQ(groupsBelow(kOther), (Groups{{"a", "b"}}));
    ASSERT_EQ(all().childrenCateogry->size(), 7U);
    EXPECT_EQ((*all().childrenCateogry)[0].childrens.size(), 1U);
    EXPECT_EQ((*all().childrenCateogry)[0].size, 6);
    EXPECT_EQ(SuperScanService::scanStatus.get(kFeature), ScanState::end);
  }

  std::shared_ptr<ScanRun> begin() { return ScanRun::begin(*feature, scan.queue, nullptr); }
};

TEST_F(Restart, runIsNotBegunWhileOneIsUnderWay) {
  const auto first = begin();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(begin(), nullptr);
  EXPECT_FALSE(first->isReplaced());
  SuperScanService::stopScan(*feature);
  EXPECT_NE(begin(), nullptr);
  EXPECT_TRUE(first->isReplaced());
}

TEST_F(Restart, treeAndEntryBelongToTheNewestRun) {
  const auto first = begin();
  SuperScanService::stopScan(*feature);
  const auto next = begin();
  int changes = 0;
  EXPECT_FALSE(first->changeTree([&changes] { ++changes; }));
  EXPECT_EQ(changes, 0);
  first->end();
  EXPECT_EQ(SuperScanService::scanStatus.get(kFeature), ScanState::start);
  EXPECT_TRUE(next->changeTree([&changes] { ++changes; }));
  EXPECT_EQ(changes, 1);
  next->end();
  EXPECT_EQ(SuperScanService::scanStatus.get(kFeature), ScanState::end);
}

TEST_F(Restart, entryOfARunIsNeverEndedByTheOneBefore) {
  for (int i = 0; i < 500; ++i) {
    const auto first = begin();
    ASSERT_NE(first, nullptr);
    SuperScanService::stopScan(*feature);
    std::atomic<int> ready{0};
    const auto meet = [&ready] {
      for (++ready; ready < 2;) continue;
    };
    std::thread end([&] {
      meet();
      first->end();
    });
    meet();
    const auto next = begin();
    end.join();
    ASSERT_NE(next, nullptr);
    ASSERT_EQ(SuperScanService::scanStatus.get(kFeature), ScanState::start) << i;
    next->end();
  }
}

TEST_F(Restart, hashOfAStoppedScanStaysStoppedWhenTheNextHasBegun) {
  for (int i = 0; i < 100; ++i) volume.file(std::string(kData) + std::to_string(i), "same size");
  ScanRecord next;
  const test::ReplacedRead reads([&](std::size_t number) {
    if (number > 0) return 0;
    SuperScanService::stopScan(*feature);
    start(next, kNothing);
    return 0;
  });
  start(scan);
  ASSERT_TRUE(test::runMainLoopUntil([&] { return scan.doneCount > 0 && next.doneCount > 0; }));
  EXPECT_EQ(scan.treeSize, 0);
  // Each thread of the hash may have had one read in progress.
  EXPECT_LE(reads.notes().size(), 1U + std::thread::hardware_concurrency());
}

TEST_F(Restart, hashOfOneLongFileStaysStoppedToo) {
  for (const std::string name : {"x", "y"}) volume.file(std::string(kData) + name, std::string(1 << 20, 'x'));
  ScanRecord next;
  const test::ReplacedRead reads([&](std::size_t number) {
    if (number > 0) return 0;
    SuperScanService::stopScan(*feature);
    start(next, kNothing);
    return 0;
  });
  start(scan);
  ASSERT_TRUE(test::runMainLoopUntil([&] { return scan.doneCount > 0 && next.doneCount > 0; }));
  EXPECT_LE(reads.notes().size(), 2U);
}

/// Parameter: the number of the task at which the old scan is held: the candidates, the end of the walk, the
/// hashes of folders, those of files.
class RestartAt : public Restart, public testing::WithParamInterface<std::size_t> {};

TEST_P(RestartAt, scanThatIsHeldUntilTheNextIsDoneLeavesItsTree) {
  twinFolders();
  twinFiles();
  const auto holding = std::make_shared<test::HoldingQueue>(GetParam());
  scan.queue = holding;
  start(scan);
  ASSERT_TRUE(test::runMainLoopUntil([&] { return holding->holds(); }));
  SuperScanService::stopScan(*feature);
  ScanRecord next;
  start(next, kOther);
  ASSERT_TRUE(next.waitUntilDone());
  EXPECT_EQ(scan.doneCount, 0);
  holding->release();
  ASSERT_TRUE(test::runMainLoopUntil([this] { return scan.doneCount > 0; }));
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_EQ(scan.treeSize, 0);
  expectTheTreeOfTheNewScan(next);
}

TEST_P(RestartAt, scanThatIsHeldWhileTheNextBeginsLeavesItsTree) {
  twinFolders();
  twinFiles();
  const auto holding = std::make_shared<test::HoldingQueue>(GetParam());
  scan.queue = holding;
  start(scan);
  ASSERT_TRUE(test::runMainLoopUntil([&] { return holding->holds(); }));
  SuperScanService::stopScan(*feature);
  ScanRecord next;
  const auto nextHolding = std::make_shared<test::HoldingQueue>(1);
  next.queue = nextHolding;
  start(next, kOther);
  holding->release();
  ASSERT_TRUE(test::runMainLoopUntil([this] { return scan.doneCount > 0; }));
  EXPECT_EQ(SuperScanService::scanStatus.get(kFeature), ScanState::start);
  EXPECT_TRUE(all().childrens.empty());
  nextHolding->release();
  ASSERT_TRUE(next.waitUntilDone());
  expectTheTreeOfTheNewScan(next);
}

INSTANTIATE_TEST_SUITE_P(EachStage, RestartAt, testing::Values(1, 2, 3, 4));

TEST_F(Restart, treeIsAlwaysThatOfTheNewScan) {
  for (int i = 0; i < 100; ++i) {
    for (const std::string name : {"x", "y"})
      volume.file(std::string(kData) + std::to_string(i) + name, std::to_string(i));
  }
  std::mt19937 random(5);
  for (int i = 0; i < 40; ++i) {
    feature = test::makeFeature(kFeature, {{CategoryInfomationKind::Common, {}}});
    ScanRecord old;
    ScanRecord next;
    const auto counting = std::make_shared<test::CountingQueue>();
    old.queue = counting;
    std::promise<void> isHashed;
    counting->number = 3;  // what comes next is the tree
    counting->act = [&isHashed] { isHashed.set_value(); };
    start(old);
    isHashed.get_future().wait();
    for (auto turns = random() % 2000; turns > 0; --turns) std::this_thread::yield();
    SuperScanService::stopScan(*feature);
    start(next, kOther);
    ASSERT_TRUE(test::runMainLoopUntil([&] { return old.doneCount > 0 && next.doneCount > 0; })) << i;
    test::drainMainQueue();
    expectTheTreeOfTheNewScan(next);
    ASSERT_EQ(old.doneCount, 1);
    ASSERT_FALSE(HasFailure()) << i;
  }
}

}  // namespace
}  // namespace sorrel
