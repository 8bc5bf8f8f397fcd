#include "SorrelFramework/Scan/MasterScan/SystemScanService.hpp"

#include <gtest/gtest.h>

#include <mutex>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Scan/PercentService.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/ScanKit.hpp"
#include "Tests/Support/VirtualClock.hpp"

namespace sorrel {
namespace {

using test::makeFeature;
using test::namesOf;
using test::ScanRecord;
using test::ScanVolume;
using Names = std::vector<std::string>;

class SystemScan : public testing::Test {
 protected:
  SystemScan() { SuperScanService::scanStatus.resetForTesting(); }

  void start(const Ref<FeatureInformation>& started) {
    SystemScanService::scanSystemJunk(*started, scan.progress(), scan.percent(), scan.singleDone(),
                                      scan.done(), scan.queue);
  }
  /// Scans one category over "root/".
  void scanRoot(CategoryInfomationKind kind) {
    feature = makeFeature(1, {{kind, {volume.url("root/")}}});
    start(feature);
    ASSERT_TRUE(scan.waitUntilDone());
  }
  [[nodiscard]] const FileRecords& records() const { return scan.results.at(0).first; }
  [[nodiscard]] Names names() const { return namesOf(records(), volume.url("root/")); }

  ScanVolume volume;
  ScanRecord scan;
  Ref<FeatureInformation> feature;
};

TEST_F(SystemScan, cacheCategoryGivesOneRecordForEachItemDirectlyInItsFolder) {
  volume.file("root/com.example.app/deep/er/blob", "55555");
  volume.file("root/com.example.app/.hidden", "1");
  volume.file("root/loose.db", "22");
  scanRoot(CategoryInfomationKind::SystemCache);
  EXPECT_EQ(names(), (Names{"com.example.app/", "loose.db"}));
  EXPECT_EQ(records()[0]->size, 6);
  const ScanFilesInformation& totals = scan.results.at(0).second;
  EXPECT_TRUE(totals.url.isEmptyPath());
  EXPECT_EQ(totals.folderSize, 6);
  EXPECT_EQ(totals.folderNumber, 1);
  EXPECT_EQ(totals.fileSize, 2);
  EXPECT_EQ(totals.fileNumber, 1);
}

TEST_F(SystemScan, placeWhereAVolumeIsMountedDecidesNothing) {
  volume.file("com.apple.kext.caches/disk/Users/alice/Library/Caches/a/b", "1");
  volume.file("com.apple.kext.caches/disk/Users/alice/Library/Caches/com.apple.kext.caches/b", "1");
  Host::install(Host::macVolume(volume.path("com.apple.kext.caches/disk"), "alice", {}));
  const URL caches = volume.url("com.apple.kext.caches/disk/Users/alice/Library/Caches/");
  feature = makeFeature(1, {{CategoryInfomationKind::SystemCache, {caches}}});
  start(feature);
  ASSERT_TRUE(scan.waitUntilDone());
  EXPECT_EQ(namesOf(records(), caches), Names{"a/"});
}

TEST_F(SystemScan, commonCategoryGivesFoldersAndTheFilesInThem) {
  volume.file("root/logs/a.log", "333");
  volume.file("root/b.log", "1");
  scanRoot(CategoryInfomationKind::Common);
  EXPECT_EQ(names(), (Names{"b.log", "logs/", "logs/a.log"}));
  const ScanFilesInformation& totals = scan.results.at(0).second;
  EXPECT_EQ(totals.folderSize + totals.fileSize, 3 + 4);
}

TEST_F(SystemScan, hiddenItemsAreLeftOutAndPackagesStayClosed) {
  volume.file("root/.hidden", "1");
  volume.file("root/Some.app/Contents/x", "22");
  scanRoot(CategoryInfomationKind::Common);
  EXPECT_EQ(names(), (Names{"Some.app/"}));
  EXPECT_EQ(records()[0]->size, 2);
}

TEST_F(SystemScan, cachesOfTheSystemItselfAreNeverOffered) {
  volume.file("root/com.apple.kext.caches/a", "1");
  volume.file("root/my com.apple.xpchelper.cache 2/a", "1");
  volume.file("root/com.apple.other/a", "1");
  scanRoot(CategoryInfomationKind::SystemCache);
  EXPECT_EQ(names(), (Names{"com.apple.other/"}));
}

TEST_F(SystemScan, cachesOfTheSystemItselfAreKnownInAnyLetterCaseOnAVolume) {
  volume.file("root/COM.apple.KEXT.caches/a", "1");
  volume.file("root/com.apple.other/a", "1");
  scanRoot(CategoryInfomationKind::SystemCache);
  EXPECT_EQ(names(), (Names{"com.apple.other/"}));
}

TEST_F(SystemScan, letterCaseOfTheSystemsCachesCountsOnTheDesktop) {
  Host::install(Host::linuxDesktop({"org.example.test", "", {}}));
  volume.file("root/COM.apple.KEXT.caches/a", "1");
  volume.file("root/com.apple.kext.caches/a", "1");
  scanRoot(CategoryInfomationKind::SystemCache);
  EXPECT_EQ(names(), (Names{"COM.apple.KEXT.caches/"}));
}

TEST_F(SystemScan, sameCachesAreKeptInACommonCategory) {
  volume.file("root/com.apple.kext.caches/a", "1");
  scanRoot(CategoryInfomationKind::Common);
  EXPECT_EQ(names(), (Names{"com.apple.kext.caches/", "com.apple.kext.caches/a"}));
}

TEST_F(SystemScan, filterDropsItemsThatAreInNoWalk) {
  EXPECT_FALSE(SystemScanService::systemCacheFilter(URL::fileURL("/a", false), {}, nullptr));
}

TEST_F(SystemScan, filterKeepsAnItemWithoutAPath) {
  struct Position : EnumerationPosition {
    explicit Position(int level) { level_ = level; }
    [[nodiscard]] bool skips() const { return skips_; }
  };
  Position first(1);
  ResourceValues file;
  EXPECT_TRUE(SystemScanService::systemCacheFilter(URL(), file, &first));
  EXPECT_FALSE(first.skips());
  ResourceValues folder;
  folder.isDirectory = true;
  EXPECT_TRUE(SystemScanService::systemCacheFilter(URL(), folder, &first));
  EXPECT_TRUE(first.skips());
  Position root(0);
  EXPECT_FALSE(SystemScanService::systemCacheFilter(URL(), file, &root));
}

TEST_F(SystemScan, recordsOfAllRootsAreNumberedThrough) {
  volume.file("root/a/x", "1");
  volume.file("other/b/x", "1");
  feature =
      makeFeature(1, {{CategoryInfomationKind::SystemCache, {volume.url("root/"), volume.url("other/")}}});
  start(feature);
  ASSERT_TRUE(scan.waitUntilDone());
  ASSERT_EQ(records().size(), 2U);
  EXPECT_EQ(records()[0]->finderID, 0);
  EXPECT_EQ(records()[1]->finderID, 1);
  EXPECT_EQ(records()[1]->hashValueString, "1:1:1:" + records()[1]->url.absoluteString());
}

TEST_F(SystemScan, recordsTakeTheTickOfTheirCategory) {
  volume.file("root/a", "1");
  feature = makeFeature(1, {{CategoryInfomationKind::Common, {volume.url("root/")}, NSControlStateValueOn}});
  start(feature);
  ASSERT_TRUE(scan.waitUntilDone());
  EXPECT_EQ(records().at(0)->state, NSControlStateValueOn);
}

TEST_F(SystemScan, everyCallbackRunsOnItsQueueAndDoneOnce) {
  volume.file("root/a", "333");
  volume.file("other/b", "1");
  feature = makeFeature(1, {{CategoryInfomationKind::Common, {volume.url("root/")}},
                            {CategoryInfomationKind::SystemCache, {volume.url("other/")}}});
  start(feature);
  ASSERT_TRUE(scan.waitUntilDone());
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_TRUE(scan.donePlaces.at(0).onSerial);
  std::sort(scan.singles.begin(), scan.singles.end());
  EXPECT_EQ(scan.singles, (std::vector<std::pair<Integer, std::int64_t>>{{0, 3}, {1, 1}}));
  for (const auto& place : scan.singlePlaces) EXPECT_TRUE(place.onSerial);
  EXPECT_EQ(scan.progressCalls.size(), 2U);
  for (const auto& place : scan.progressPlaces) EXPECT_TRUE(place.onMain);
  EXPECT_EQ(scan.percents.back(), 1.0F);
  EXPECT_EQ(SuperScanService::scanStatus.get(1), ScanState::end);
}

TEST_F(SystemScan, treeIsLeftAsItIs) {
  volume.file("root/a", "333");
  scanRoot(CategoryInfomationKind::Common);
  EXPECT_TRUE(feature->categoryInfo[0].childrens.empty());
  EXPECT_EQ(feature->categoryInfo[0].size, 0);
}

TEST_F(SystemScan, categoryWhoseFolderIsMissingFinishesEmpty) {
  scanRoot(CategoryInfomationKind::SystemCache);
  EXPECT_TRUE(records().empty());
  EXPECT_EQ(scan.singles, (std::vector<std::pair<Integer, std::int64_t>>{{0, 0}}));
}

TEST_F(SystemScan, secondStartOfARunningScanCallsNothingBack) {
  feature = makeFeature(1, {{CategoryInfomationKind::Common, {volume.url("root/")}}});
  SuperScanService::scanStatus.set(1, ScanState::start);
  const auto bar = SuperScanService::percentService.get();
  start(feature);
  test::drainMainQueue();
  EXPECT_EQ(scan.doneCount, 0);
  EXPECT_EQ(scan.queue->accepted(), 0U);
  EXPECT_EQ(SuperScanService::percentService.get(), bar);
  EXPECT_EQ(SuperScanService::scanStatus.get(1), ScanState::start);
}

TEST_F(SystemScan, scanThatEndedOrWasStoppedMayStartAgain) {
  volume.file("root/a", "1");
  for (const ScanState before : {ScanState::end, ScanState::suspend}) {
    SuperScanService::scanStatus.set(1, before);
    scan.percents.clear();
    scan.doneCount = 0;
    scanRoot(CategoryInfomationKind::Common);
    EXPECT_EQ(records().size(), 1U);
  }
}

TEST_F(SystemScan, featureWithoutCategoriesNeverEndsButItsBarDoes) {
  feature = makeFeature(1, {});
  start(feature);
  ASSERT_TRUE(test::runMainLoopUntil([this] {
    const std::lock_guard lock(scan.mutex);
    return !scan.percents.empty();
  }));
  EXPECT_EQ(scan.percents, std::vector<float>{1.0F});
  EXPECT_EQ(scan.doneCount, 0);
  EXPECT_EQ(SuperScanService::scanStatus.get(1), ScanState::start);
}

TEST_F(SystemScan, categoryWithoutFoldersKeepsTheScanFromEnding) {
  volume.file("root/a", "1");
  feature = makeFeature(
      1, {{CategoryInfomationKind::Common, {volume.url("root/")}}, {CategoryInfomationKind::Common, {}}});
  start(feature);
  ASSERT_TRUE(test::runMainLoopUntil([this] {
    const std::lock_guard lock(scan.mutex);
    return !scan.singles.empty();
  }));
  test::drainMainQueue();
  EXPECT_EQ(scan.doneCount, 0);
  EXPECT_EQ(SuperScanService::scanStatus.get(1), ScanState::start);
}

TEST_F(SystemScan, stoppedScanStillEndsThroughItsNormalCompletion) {
  for (int i = 0; i < 200; ++i) volume.file("root/f" + std::to_string(i), "1");
  feature = makeFeature(1, {{CategoryInfomationKind::Common, {volume.url("root/")}}});
  const test::VirtualClock clock;
  scan.queue->refuseAll();  // the scan cannot end before the stop
  start(feature);
  SuperScanService::stopScan(*feature);
  EXPECT_EQ(SuperScanService::percentService.get(), nullptr);
  scan.queue->acceptAgain();
  ASSERT_TRUE(scan.waitUntilDone());
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_LE(records().size(), 200U);
  EXPECT_EQ(SuperScanService::scanStatus.get(1), ScanState::end);
}

TEST_F(SystemScan, refusedLastStepIsNotLost) {
  volume.file("root/a", "1");
  feature = makeFeature(1, {{CategoryInfomationKind::Common, {volume.url("root/")}}});
  scan.queue->refuseNext(1);
  start(feature);
  ASSERT_TRUE(scan.waitUntilDone());
  EXPECT_EQ(records().size(), 1U);
}

TEST_F(SystemScan, updateNumbersTheRecordsByTheirPosition) {
  volume.file("root/a", "1");
  volume.file("root/b", "1");
  scanRoot(CategoryInfomationKind::Common);
  CategoryInformation& category = feature->categoryInfo[0];
  category.childrens = scan.results.at(0).first;
  category.childrens.erase(category.childrens.begin());
  category.childrens[0].size = 9;

  const auto updated = SystemScanService::updateSystemJunkCategory({feature->categoryInfo.ref(0)});
  ASSERT_EQ(updated.size(), 1U);
  EXPECT_EQ(updated[0].get(), &category);
  EXPECT_EQ(category.childrens[0].finderID, 0);
  EXPECT_EQ(category.childrens[0].hashValueString, "0:1:9:" + category.childrens[0].url.absoluteString());
}

TEST_F(SystemScan, updateOfNothingGivesNothing) {
  EXPECT_TRUE(SystemScanService::updateSystemJunkCategory({}).empty());
}

}  // namespace
}  // namespace sorrel
