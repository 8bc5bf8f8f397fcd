// The contract of every scanner that walks the categories of a feature. A new scanner is one more row of the
// table.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Queues/GlobalQueue.hpp"
#include "SorrelFramework/Scan/MasterScan/EmailScanService.hpp"
#include "SorrelFramework/Scan/MasterScan/PhotoScanService.hpp"
#include "SorrelFramework/Scan/MasterScan/SystemScanService.hpp"
#include "SorrelFramework/Scan/MasterScan/TrashBinScanService.hpp"
#include "SorrelFramework/Scan/MasterScan/iTunesScanService.hpp"
#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Units/LogService.hpp"
#include "Tests/Support/ActingAsPlainUser.hpp"
#include "Tests/Support/BusyThreads.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/ScanKit.hpp"
#include "Tests/Support/ScopedVariable.hpp"
#include "Tests/Support/TemporaryVolume.hpp"
#include "Tests/Support/VirtualClock.hpp"

namespace sorrel {
namespace {

using test::ScanRecord;

/// One scanner of the family and its differences from the others.
struct Scanner {
  std::string_view name;
  Integer finderID;
  std::vector<CategoryInfomationKind> kinds;  ///< of the categories used in the tests
  bool endsOnMain;                            ///< the queue of done: the main queue, else the serial one
  bool tellsSingles;                          ///< calls singleDone for each category
  void (*start)(FeatureInformation& feature, ScanRecord& scan);
  FileRecords (*records)(FeatureInformation& feature, ScanRecord& scan, std::size_t category);
  std::string_view ending;  ///< extension of the files that it keeps
  bool onDesktop = false;   ///< walks the folders of the catalogue only there
};

void PrintTo(const Scanner& scanner, std::ostream* out) { *out << scanner.name; }

FileRecords recordsHandedOver(FeatureInformation& /*feature*/, ScanRecord& scan, std::size_t category) {
  return scan.results.at(static_cast<Integer>(category)).first;
}

FileRecords recordsInTheTree(FeatureInformation& feature, ScanRecord& /*scan*/, std::size_t category) {
  return feature.categoryInfo[category].childrens.refs();
}

const std::vector<Scanner> kScanners = {
    {"SystemJunk",
     1,
     {CategoryInfomationKind::SystemCache, CategoryInfomationKind::Common},
     false,
     true,
     [](FeatureInformation& feature, ScanRecord& scan) {
       SystemScanService::scanSystemJunk(feature, scan.progress(), scan.percent(), scan.singleDone(),
                                         scan.done(), scan.queue);
     },
     recordsHandedOver,
     ""},
    {"TrashBin",
     2,
     {CategoryInfomationKind::Common, CategoryInfomationKind::OtherTrashBin},
     true,
     false,
     [](FeatureInformation& feature, ScanRecord& scan) {
       TrashBinScanService::scanTrashBin(feature, scan.progress(), scan.percent(), scan.singleDone(),
                                         scan.treeDone(), "Trash of a volume", scan.queue);
     },
     recordsInTheTree,
     ""},
    {"Email",
     4,
     {CategoryInfomationKind::Common},
     false,
     true,
     [](FeatureInformation& feature, ScanRecord& scan) {
       EmailScanService::scanEmailJunk(feature, scan.progress(), scan.percent(), scan.singleDone(),
                                       scan.done(), scan.queue);
     },
     recordsHandedOver,
     ""},
    {"iTunes",
     5,
     {CategoryInfomationKind::Common},
     false,
     true,
     [](FeatureInformation& feature, ScanRecord& scan) {
       iTunesScanService::scaniTunesJunk(feature, scan.progress(), scan.percent(), scan.singleDone(),
                                         scan.done(), scan.queue);
     },
     recordsHandedOver,
     ""},
    {"Photo",
     6,
     {CategoryInfomationKind::Common},
     false,
     true,
     [](FeatureInformation& feature, ScanRecord& scan) {
       PhotoScanService::scaniPhotoJunk(feature, scan.progress(), scan.percent(), scan.singleDone(),
                                        scan.done(), scan.queue);
     },
     recordsHandedOver,
     ".png",
     true},
};

class ScannerFrame : public testing::TestWithParam<Scanner> {
 protected:
  ScannerFrame() {
    SuperScanService::scanStatus.resetForTesting();
    SuperScanService::percentService.exchange(nullptr);
    LogService::resetForTesting();
    volume.install();
    if (GetParam().onDesktop) Host::install(Host::linuxDesktop({"org.example.test", "", {}}));
  }

  /// A file that the scanner keeps.
  void file(const std::string& name, const std::string& content) const {
    volume.file(name + std::string(GetParam().ending), content);
  }
  [[nodiscard]] std::string path(const std::string& name) const {
    return volume.path(name + std::string(GetParam().ending));
  }
  [[nodiscard]] static std::vector<std::string> named(std::vector<std::string> names) {
    for (std::string& name : names) name += GetParam().ending;
    return names;
  }

  /// A feature with one category for each list of folders.
  Ref<FeatureInformation> makeFeature(const std::vector<std::vector<std::string>>& folders) {
    std::vector<test::CategorySketch> sketches;
    for (const auto& names : folders) {
      test::CategorySketch sketch;
      sketch.kind = GetParam().kinds[sketches.size() % GetParam().kinds.size()];
      sketch.state = NSControlStateValueOn;
      for (const std::string& name : names) sketch.urls.push_back(volume.url(name));
      sketches.push_back(std::move(sketch));
    }
    return test::makeFeature(GetParam().finderID, sketches);
  }
  void start() { GetParam().start(*feature, scan); }
  [[nodiscard]] FileRecords records(std::size_t category) {
    return GetParam().records(*feature, scan, category);
  }
  [[nodiscard]] std::vector<std::string> titles(std::size_t category) {
    std::vector<std::string> found;
    for (const auto& record : records(category)) found.push_back(record->title);
    return found;
  }
  [[nodiscard]] std::optional<ScanState> status() const {
    return SuperScanService::scanStatus.get(GetParam().finderID);
  }

  test::TemporaryVolume volume;
  test::ScopedVariable home{"HOME", volume.path("Users/alice").c_str()};
  ScanRecord scan;
  Ref<FeatureInformation> feature;
};

using Titles = std::vector<std::string>;

TEST_P(ScannerFrame, doneComesOnceOnItsQueueAfterTheStatusReadsEnd) {
  file("one/a", "1");
  file("two/b", "22");
  feature = makeFeature({{"one/"}, {"two/"}});
  std::optional<ScanState> atDone;
  scan.onDone = [&] { atDone = status(); };
  start();
  ASSERT_TRUE(scan.waitUntilDone());
  test::drainMainQueue();
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_EQ(scan.donePlaces.at(0).onMain, GetParam().endsOnMain);
  EXPECT_EQ(scan.donePlaces.at(0).onSerial, !GetParam().endsOnMain);
  EXPECT_EQ(atDone, ScanState::end);
  EXPECT_EQ(status(), ScanState::end);
  EXPECT_EQ(titles(0), named({"a"}));
  EXPECT_EQ(titles(1), named({"b"}));
}

TEST_P(ScannerFrame, singleDoneComesOnceForEachCategoryOrNever) {
  file("one/a", "1");
  file("two/b", "22");
  feature = makeFeature({{"one/"}, {"two/"}});
  start();
  ASSERT_TRUE(scan.waitUntilDone());
  std::sort(scan.singles.begin(), scan.singles.end());
  using Singles = std::vector<std::pair<Integer, std::int64_t>>;
  EXPECT_EQ(scan.singles, GetParam().tellsSingles ? (Singles{{0, 1}, {1, 2}}) : Singles{});
  for (const auto& place : scan.singlePlaces) EXPECT_TRUE(place.onSerial);
}

TEST_P(ScannerFrame, recordsAreNumberedThroughAndTakeAfterTheirCategory) {
  file("one/a", "1");
  file("one/b", "1");
  file("two/c", "1");
  feature = makeFeature({{"one/", "two/"}});
  start();
  ASSERT_TRUE(scan.waitUntilDone());
  const CategoryInformation& category = feature->categoryInfo[0];
  Integer position = 0;
  for (const auto& record : records(0)) {
    EXPECT_EQ(record->finderID, position);
    EXPECT_EQ(record->hashValueString, std::to_string(position) + ":1:1:" + record->url.absoluteString());
    EXPECT_EQ(record->state, NSControlStateValueOn);
    EXPECT_EQ(record->parentCategoryInfo.get(), &category);
    ++position;
  }
  EXPECT_EQ(position, 3);
}

TEST_P(ScannerFrame, progressRunsOnTheMainQueueOnceForEachItem) {
  file("one/a", "1");
  file("two/b", "22");
  feature = makeFeature({{"one/"}, {"two/"}});
  start();
  ASSERT_TRUE(scan.waitUntilDone());
  std::sort(scan.progressCalls.begin(), scan.progressCalls.end());
  EXPECT_EQ(scan.progressCalls,
            (std::vector<std::pair<std::string, std::int64_t>>{{path("one/a"), 1}, {path("two/b"), 2}}));
  for (const auto& place : scan.progressPlaces) EXPECT_TRUE(place.onMain);
}

TEST_P(ScannerFrame, barEndsAtOneOnTheMainQueue) {
  file("one/a", "1");
  feature = makeFeature({{"one/"}, {"one/"}, {"one/"}});
  start();
  const auto bar = SuperScanService::percentService.get();
  ASSERT_NE(bar, nullptr);
  EXPECT_EQ(bar->totalStep, 3);
  ASSERT_TRUE(scan.waitUntilDone());
  test::drainMainQueue();
  EXPECT_EQ(bar->currentStep, 3);
  EXPECT_EQ(scan.percents.back(), 1.0F);
  EXPECT_EQ(std::count(scan.percents.begin(), scan.percents.end(), 1.0F), 1);
  for (const auto& place : scan.percentPlaces) EXPECT_TRUE(place.onMain);
}

TEST_P(ScannerFrame, secondStartWhileTheFirstRunsCallsNothingBack) {
  file("one/a", "1");
  feature = makeFeature({{"one/"}});
  ScanRecord second;
  {
    const test::BusyThreads none(GlobalQueue::width());  // the first scan cannot end yet
    start();
    const auto bar = SuperScanService::percentService.get();
    GetParam().start(*feature, second);
    EXPECT_EQ(SuperScanService::percentService.get(), bar);
    EXPECT_EQ(status(), ScanState::start);
  }
  ASSERT_TRUE(scan.waitUntilDone());
  ASSERT_TRUE(test::drain(*second.queue));
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_EQ(second.doneCount, 0);
  EXPECT_EQ(second.queue->accepted(), 0U);
  EXPECT_TRUE(second.percents.empty());
  EXPECT_TRUE(second.progressCalls.empty());
  EXPECT_TRUE(second.singles.empty());
}

TEST_P(ScannerFrame, stopKeepsWhatWasFoundLeavesTheRestAndStillEnds) {
  file("one/a", "1");
  file("two/b", "1");
  feature = makeFeature({{"one/"}, {"two/"}});
  // One thread walks the categories one after the other; the queue refuses the first finished one, and at
  // that moment the scan is stopped.
  const test::BusyThreads allButOne(GlobalQueue::width() - 1);
  const test::VirtualClock clock([this](std::uint64_t) { SuperScanService::stopScan(*feature); });
  scan.queue->refuseNext(1);
  start();
  ASSERT_TRUE(scan.waitUntilDone());
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_EQ(titles(0), named({"a"}));
  EXPECT_EQ(titles(1), Titles{});
  EXPECT_EQ(scan.percents.back(), 1.0F);
  EXPECT_EQ(SuperScanService::percentService.get(), nullptr);
  EXPECT_EQ(status(), ScanState::end);
}

TEST_P(ScannerFrame, stopBeforeTheFirstItemGivesAnEmptyResult) {
  file("one/a", "1");
  feature = makeFeature({{"one/"}, {"one/"}});
  {
    const test::BusyThreads all(GlobalQueue::width());
    start();
    SuperScanService::stopScan(*feature);
    EXPECT_EQ(status(), ScanState::suspend);
  }
  ASSERT_TRUE(scan.waitUntilDone());
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_EQ(titles(0), Titles{});
  EXPECT_EQ(titles(1), Titles{});
  EXPECT_EQ(status(), ScanState::end);
}

TEST_P(ScannerFrame, scanThatEndedOrWasStoppedMayStartAgain) {
  file("one/a", "1");
  feature = makeFeature({{"one/"}});
  for (const ScanState before : {ScanState::end, ScanState::suspend}) {
    SuperScanService::scanStatus.set(GetParam().finderID, before);
    scan.percents.clear();
    scan.doneCount = 0;
    start();
    ASSERT_TRUE(scan.waitUntilDone());
    EXPECT_EQ(titles(0), named({"a"}));
  }
}

TEST_P(ScannerFrame, scanChangesNothingBelowItsFolders) {
  file("one/a", "1");
  file("one/deep/er/b", "22");
  volume.file("one/My.app/Contents/Info.plist", "no list");
  volume.file("one/.hidden/c", "333");
  volume.link("one/link", "a");
  volume.folder("one/empty");
  const auto before = test::snapshotOf(volume.path("one"));
  feature = makeFeature({{"one/"}, {"one/"}});
  start();
  ASSERT_TRUE(scan.waitUntilDone());
  EXPECT_FALSE(records(0).empty());
  EXPECT_EQ(test::snapshotOf(volume.path("one")), before);
}

TEST_P(ScannerFrame, missingAndUnreadableRootsAreEmptyAndKeepNothingFromEnding) {
  file("closed/hidden", "1");
  file("good/a", "1");
  volume.file("good/closed/hidden", "1");
  volume.link("loop", "loop");
  volume.setMode(".", 0755);
  volume.setMode("closed", 0);
  volume.setMode("good/closed", 0);
  feature = makeFeature({{"missing/", "closed/", "good/", "loop/", "good/a/b/"}, {"missing/"}, {"closed/"}});
  {
    const test::ActingAsPlainUser somebody;
    start();
    ASSERT_TRUE(scan.waitUntilDone());
  }
  EXPECT_EQ(titles(0), named({"a"}));
  EXPECT_EQ(titles(1), Titles{});
  EXPECT_EQ(titles(2), Titles{});
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_EQ(status(), ScanState::end);
  volume.setMode("closed", 0700);
  volume.setMode("good/closed", 0700);
}

TEST_P(ScannerFrame, refusalsOfTheQueueAreRetriedAndLoseNothing) {
  file("one/a", "1");
  file("two/b", "1");
  file("three/c", "1");
  feature = makeFeature({{"one/", "two/"}, {"three/"}});
  const test::VirtualClock clock;
  scan.queue->refuseNext(5);
  start();
  ASSERT_TRUE(scan.waitUntilDone());
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_EQ(titles(0), named({"a", "b"}));
  EXPECT_EQ(titles(1), named({"c"}));
  EXPECT_EQ(clock.waits(), std::vector<std::uint64_t>(5, 500'000));
}

INSTANTIATE_TEST_SUITE_P(Scanners, ScannerFrame, testing::ValuesIn(kScanners),
                         [](const testing::TestParamInfo<Scanner>& row) {
                           return std::string(row.param.name);
                         });

}  // namespace
}  // namespace sorrel
