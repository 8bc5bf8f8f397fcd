#include "SorrelFramework/Scan/ScanRun.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Scan/SuperScanService.hpp"
#include "SorrelFramework/Scan/UnreadFolders.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/ScanKit.hpp"

namespace sorrel {
namespace {

class ScanRunTest : public testing::Test {
 protected:
  static constexpr Integer kFeature = 3;

  ScanRunTest() {
    SuperScanService::scanStatus.resetForTesting();
    SuperScanService::percentService.exchange(nullptr);
  }
  ~ScanRunTest() override {
    SuperScanService::percentService.exchange(nullptr);
    test::drainMainQueue();
  }

  std::shared_ptr<PercentService> makeBar() {
    return std::make_shared<PercentService>([this](float share) { reports.push_back(share); }, 4);
  }
  std::shared_ptr<ScanRun> begin(const std::shared_ptr<PercentService>& bar = nullptr,
                                 ScanSteps steps = ScanSteps::OwnBar) {
    return ScanRun::begin(*feature, queue, bar, steps);
  }
  static std::optional<ScanState> status() { return SuperScanService::scanStatus.get(kFeature); }

  test::ScanVolume volume;
  Ref<FeatureInformation> feature = test::makeFeature(kFeature, {});
  std::shared_ptr<test::RecordingQueue> queue = std::make_shared<test::RecordingQueue>();
  std::vector<float> reports;
};

TEST_F(ScanRunTest, beginSetsTheEntryAndPutsTheBarInItsSlot) {
  const auto bar = makeBar();
  const auto run = begin(bar);
  ASSERT_NE(run, nullptr);
  EXPECT_EQ(status(), ScanState::start);
  EXPECT_EQ(SuperScanService::percentService.get(), bar);
}

TEST_F(ScanRunTest, beginForgetsTheUnreadFoldersOfTheLastScan) {
  UnreadFolders::add(kFeature, "/closed", EACCES);
  const auto run = begin();
  EXPECT_EQ(UnreadFolders::of(kFeature).count, 0);
}

TEST_F(ScanRunTest, secondBeginChangesNothing) {
  const auto bar = makeBar();
  const auto run = begin(bar);
  UnreadFolders::add(kFeature, "/closed", EACCES);
  EXPECT_EQ(begin(makeBar()), nullptr);
  EXPECT_EQ(SuperScanService::percentService.get(), bar);
  EXPECT_EQ(UnreadFolders::of(kFeature).count, 1);
  EXPECT_FALSE(run->isReplaced());
  UnreadFolders::clear(kFeature);
}

TEST_F(ScanRunTest, runEndsOnce) {
  const auto run = begin();
  EXPECT_TRUE(run->end());
  EXPECT_EQ(status(), ScanState::end);
  SuperScanService::scanStatus.set(kFeature, ScanState::suspend);
  EXPECT_FALSE(run->end());
  EXPECT_EQ(status(), ScanState::suspend);
}

TEST_F(ScanRunTest, runThatGoesAwayFreesItsEntryAndItsBarWithoutAReport) {
  for (const ScanSteps steps : {ScanSteps::OwnBar, ScanSteps::BarInFlight}) {
    auto run = begin(makeBar(), steps);
    run = nullptr;
    EXPECT_EQ(status(), ScanState::end);
    EXPECT_EQ(SuperScanService::percentService.get(), nullptr);
  }
  test::drainMainQueue();
  EXPECT_TRUE(reports.empty());
}

TEST_F(ScanRunTest, runThatGoesAwayAfterItsEndChangesNothing) {
  const auto bar = makeBar();
  auto run = begin(bar);
  run->end();
  SuperScanService::scanStatus.set(kFeature, ScanState::suspend);
  run = nullptr;
  EXPECT_EQ(status(), ScanState::suspend);
  EXPECT_EQ(SuperScanService::percentService.get(), bar);
}

TEST_F(ScanRunTest, replacedRunThatGoesAwayLeavesEntryAndBarToTheNewer) {
  auto old = begin(makeBar());
  SuperScanService::stopScan(*feature);
  const auto bar = makeBar();
  const auto next = begin(bar);
  old = nullptr;
  EXPECT_EQ(status(), ScanState::start);
  EXPECT_EQ(SuperScanService::percentService.get(), bar);
}

TEST_F(ScanRunTest, runThatIsKeptOpenNeverEnds) {
  auto run = begin();
  run->keepOpen();
  run = nullptr;
  EXPECT_EQ(status(), ScanState::start);
}

TEST_F(ScanRunTest, runOfLaterStagesLeavesTheEntryAsItIs) {
  const ScanRun run(*feature, queue, nullptr);
  EXPECT_EQ(status(), std::nullopt);
}

TEST_F(ScanRunTest, stepsMoveTheRunsOwnBarWhicheverIsInFlight) {
  const auto own = makeBar();
  const auto run = begin(own);
  SuperScanService::percentService.exchange(makeBar());
  run->step();
  EXPECT_EQ(own->currentStep, 1);
  EXPECT_EQ(SuperScanService::percentService.get()->currentStep, 0);
}

TEST_F(ScanRunTest, stepsOfTheJunkScannersMoveTheBarInFlight) {
  auto bar = makeBar();
  const std::weak_ptr<PercentService> own = bar;
  const auto run = begin(std::exchange(bar, nullptr), ScanSteps::BarInFlight);
  run->step();
  EXPECT_EQ(own.lock()->currentStep, 1);
  SuperScanService::percentService.exchange(makeBar());
  EXPECT_TRUE(own.expired());
  run->step();
  EXPECT_EQ(SuperScanService::percentService.get()->currentStep, 1);
  SuperScanService::percentService.exchange(nullptr);
  run->step();  // there is none
}

TEST_F(ScanRunTest, stepOfAReplacedRunLeavesTheBarOfTheNewer) {
  const auto old = begin(makeBar(), ScanSteps::BarInFlight);
  SuperScanService::stopScan(*feature);
  const auto bar = makeBar();
  const auto next = begin(bar, ScanSteps::BarInFlight);
  old->step();
  EXPECT_EQ(bar->currentStep, 0);
  next->step();
  EXPECT_EQ(bar->currentStep, 1);
}

TEST_F(ScanRunTest, unreadFoldersOfAReplacedRunAreLeftOut) {
  const auto old = begin();
  const auto unread = old->unreadHandler();
  unread("/one", EACCES);
  EXPECT_EQ(UnreadFolders::of(kFeature).count, 1);
  SuperScanService::stopScan(*feature);
  const auto next = begin();
  unread("/one", EACCES);
  old->addUnread({1, {{"/two", EACCES}}});
  EXPECT_EQ(UnreadFolders::of(kFeature).count, 0);
  next->addUnread({1, {{"/two", EACCES}}});
  EXPECT_EQ(UnreadFolders::of(kFeature).count, 1);
  UnreadFolders::clear(kFeature);
}

TEST_F(ScanRunTest, stopTestSeesAStopAndANewerScan) {
  const auto old = begin();
  const StopTest stop = old->stopTest();
  EXPECT_FALSE(stop.isStopped());
  SuperScanService::stopScan(*feature);
  EXPECT_TRUE(stop.isStopped());
  const auto next = begin();
  EXPECT_TRUE(stop.isStopped());
  EXPECT_FALSE(next->stopTest().isStopped());
}

}  // namespace
}  // namespace sorrel
