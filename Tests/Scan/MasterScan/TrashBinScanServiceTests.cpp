#include "SorrelFramework/Scan/MasterScan/TrashBinScanService.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/ScanKit.hpp"

namespace sorrel {
namespace {

using test::makeFeature;
using test::namesOf;
using test::ScanRecord;
using test::ScanVolume;
using Names = std::vector<std::string>;

class TrashScan : public testing::Test {
 protected:
  TrashScan() {
    SuperScanService::scanStatus.resetForTesting();
    trash = volume.url("Users/alice/.Trash/");
  }

  void start(const std::vector<test::CategorySketch>& categories) {
    feature = makeFeature(2, categories);
    TrashBinScanService::scanTrashBin(*feature, scan.progress(), scan.percent(), scan.singleDone(),
                                      scan.treeDone(), "Trash of a volume", scan.queue);
  }
  void scanTrash() {
    start({{CategoryInfomationKind::Common, {trash}}});
    ASSERT_TRUE(scan.waitUntilDone());
  }
  [[nodiscard]] FileRecords records(std::size_t category = 0) const {
    return feature->categoryInfo[category].childrens.refs();
  }
  [[nodiscard]] Names names() const { return namesOf(records(), trash); }

  ScanVolume volume;
  URL trash;
  ScanRecord scan;
  Ref<FeatureInformation> feature;
};

TEST_F(TrashScan, folderInTheTrashIsOneRecordWithAllThatLiesInIt) {
  volume.file("Users/alice/.Trash/old/deep/a", "333");
  volume.file("Users/alice/.Trash/old/.b", "1");
  volume.file("Users/alice/.Trash/note", "22");
  scanTrash();
  EXPECT_EQ(names(), (Names{"note", "old/"}));
  EXPECT_EQ(records()[1]->size, 4);
}

TEST_F(TrashScan, hiddenItemsOfTheTrashAreListedToo) {
  volume.file("Users/alice/.Trash/.secret", "1");
  scanTrash();
  EXPECT_EQ(names(), Names{".secret"});
}

TEST_F(TrashScan, emptyFileInTheTrashGivesNoRecord) {
  volume.file("Users/alice/.Trash/empty", "");
  scanTrash();
  EXPECT_TRUE(names().empty());
}

TEST_F(TrashScan, treeIsFilledAndDoneRunsOnTheMainQueue) {
  volume.file("Users/alice/.Trash/a", "333");
  volume.file("Volumes/USB/.Trashes/501/b", "22");
  start({{CategoryInfomationKind::Common, {trash}},
         {CategoryInfomationKind::OtherTrashBin, {volume.url("Volumes/USB/.Trashes/501/")}}});
  ASSERT_TRUE(scan.waitUntilDone());
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_TRUE(scan.donePlaces.at(0).onMain);
  EXPECT_EQ(scan.treeSize, 5);
  EXPECT_EQ(feature->categoryInfo[0].size, 3);
  EXPECT_EQ(feature->categoryInfo[1].size, 2);
  EXPECT_EQ(records(1).at(0)->parentFinderID, 2);
  EXPECT_TRUE(scan.singles.empty());
  EXPECT_EQ(SuperScanService::scanStatus.get(2), ScanState::end);
}

TEST_F(TrashScan, recordsAreNumberedFromZero) {
  for (const char* name : {"c", "a", "b"}) volume.file(std::string("Users/alice/.Trash/") + name, "1");
  scanTrash();
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(records().at(i)->finderID, static_cast<Integer>(i));
}

TEST_F(TrashScan, progressCountsTheItemsOfTheTrashAlone) {
  volume.file("Users/alice/.Trash/old/deep/a", "333");
  scanTrash();
  ASSERT_EQ(scan.progressCalls.size(), 1U);
  EXPECT_EQ(scan.progressCalls[0], std::make_pair(volume.path("Users/alice/.Trash/old/"), std::int64_t{0}));
}

TEST_F(TrashScan, stoppedScanFillsTheTreeAndCallsDone) {
  for (int i = 0; i < 100; ++i) volume.file("Users/alice/.Trash/f" + std::to_string(i), "1");
  start({{CategoryInfomationKind::Common, {trash}}});
  SuperScanService::stopScan(*feature);
  ASSERT_TRUE(scan.waitUntilDone());
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_EQ(static_cast<std::int64_t>(records().size()), scan.treeSize);
}

TEST_F(TrashScan, secondStartCallsNothingBack) {
  SuperScanService::scanStatus.set(2, ScanState::start);
  start({{CategoryInfomationKind::Common, {trash}}});
  test::drainMainQueue();
  EXPECT_EQ(scan.doneCount, 0);
}

TEST_F(TrashScan, secondScanReplacesWhatTheFirstFound) {
  volume.file("Users/alice/.Trash/a", "1");
  scanTrash();
  ASSERT_EQ(::unlink(volume.path("Users/alice/.Trash/a").c_str()), 0);
  scan.doneCount = 0;
  scan.percents.clear();
  TrashBinScanService::scanTrashBin(*feature, {}, scan.percent(), {}, scan.treeDone(), "", scan.queue);
  ASSERT_TRUE(scan.waitUntilDone());
  EXPECT_TRUE(records().empty());
  EXPECT_EQ(feature->categoryInfo[0].size, 0);
}

TEST_F(TrashScan, trashThatIsALinkIsNoTrash) {
  volume.file("Users/alice/Documents/thesis", "1");
  ASSERT_EQ(::symlink("Documents", volume.path("Users/alice/.Trash").c_str()), 0);
  scanTrash();
  EXPECT_TRUE(records().empty());
}

TEST_F(TrashScan, linkUnderOtherLettersIsNoTrashEither) {
  volume.file("Users/alice/Documents/thesis", "1");
  ASSERT_EQ(::symlink("/Users/alice/Documents", volume.path("Users/alice/.trash").c_str()), 0);
  scanTrash();
  EXPECT_TRUE(records().empty());
}

TEST_F(TrashScan, trashUnderOtherLettersIsFound) {
  volume.file("Users/alice/.trash/a", "1");
  scanTrash();
  ASSERT_EQ(records().size(), 1U);
  EXPECT_EQ(records()[0]->url, volume.url("Users/alice/.trash/a"));
}

TEST_F(TrashScan, whatALinkInPlaceOfTheTrashLeadsToIsNotWalked) {
  volume.file("Users/alice/Documents/thesis/chapter", "1");
  ASSERT_EQ(::symlink("Documents", volume.path("Users/alice/.Trash").c_str()), 0);
  // The access time of a folder shows whether it was read, if the file system maintains one.
  const std::string inner = volume.path("Users/alice/Documents/thesis");
  const auto isReadBy = [&inner](const std::function<void()>& work) {
    const timespec longAgo[] = {{86400, 0}, {0, UTIME_OMIT}};
    EXPECT_EQ(::utimensat(AT_FDCWD, inner.c_str(), longAgo, 0), 0);
    work();
    struct stat status {};
    EXPECT_EQ(::stat(inner.c_str(), &status), 0);
    return status.st_atim.tv_sec != longAgo[0].tv_sec;
  };
  if (!isReadBy([&] { SuperScanService::calculateSize(URL::fileURL(inner, true), 0); })) {
    GTEST_SKIP() << "no access times";
  }
  EXPECT_FALSE(isReadBy([this] { scanTrash(); }));
}

TEST_F(TrashScan, filterKeepsTheFirstLevelAlone) {
  struct Position : EnumerationPosition {
    explicit Position(int level) { level_ = level; }
  };
  Position first(1);
  Position second(2);
  EXPECT_TRUE(TrashBinScanService::filter(URL(), {}, &first));
  EXPECT_FALSE(TrashBinScanService::filter(URL(), {}, &second));
  EXPECT_FALSE(TrashBinScanService::filter(URL(), {}, nullptr));
}

// Trash folders of other volumes

class OtherTrashes : public TrashScan {
 protected:
  [[nodiscard]] std::string uid() const { return std::to_string(Host::current().userID()); }
};

TEST_F(OtherTrashes, volumeWithATrashOfTheUserIsListedWithItsName) {
  volume.folder("Volumes/My USB/.Trashes/" + uid());
  const auto info = TrashBinScanService::getUSBInfo();
  ASSERT_EQ(info.size(), 1U);
  EXPECT_EQ(info[0].first, volume.url("Volumes/My USB/.Trashes/" + uid() + "/"));
  EXPECT_EQ(info[0].second, "My USB");
}

TEST_F(OtherTrashes, trashOfAnotherUserIsNotListed) {
  volume.folder("Volumes/USB/.Trashes/4242");
  EXPECT_TRUE(TrashBinScanService::getUSBInfo().empty());
}

TEST_F(OtherTrashes, volumeWithoutATrashIsNotListed) {
  volume.folder("Volumes/USB");
  EXPECT_TRUE(TrashBinScanService::getUSBInfo().empty());
}

TEST_F(OtherTrashes, trashOfTheRootVolumeIsNotListed) {
  volume.folder(".Trashes/" + uid());
  EXPECT_TRUE(TrashBinScanService::getUSBInfo().empty());
}

TEST_F(OtherTrashes, trashOfAVolumeThatIsALinkIsNotListed) {
  volume.folder("Users/alice/Documents");
  volume.folder("Volumes/USB/.Trashes");
  ASSERT_EQ(::symlink("../../../Users/alice/Documents", volume.path("Volumes/USB/.Trashes/" + uid()).c_str()),
            0);
  EXPECT_TRUE(TrashBinScanService::getUSBInfo().empty());
}

}  // namespace
}  // namespace sorrel
