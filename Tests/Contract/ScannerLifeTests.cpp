// The life of a scan, for every scanner: stops, starts and refusals at every task of its queue. A new scanner
// is one more row of the table.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"
#include "SorrelFramework/Scan/LargeAndOldFile/LargeAndOldFileService.hpp"
#include "SorrelFramework/Scan/MasterScan/EmailScanService.hpp"
#include "SorrelFramework/Scan/MasterScan/PhotoScanService.hpp"
#include "SorrelFramework/Scan/MasterScan/SystemScanService.hpp"
#include "SorrelFramework/Scan/MasterScan/TrashBinScanService.hpp"
#include "SorrelFramework/Scan/MasterScan/iTunesScanService.hpp"
#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Units/LogService.hpp"
#include "Tests/Support/HoldingQueue.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/ScanKit.hpp"
#include "Tests/Support/SuffixFinder.hpp"
#include "Tests/Support/TemporaryVolume.hpp"
#include "Tests/Support/VirtualClock.hpp"

namespace sorrel {
namespace {

using test::HoldingQueue;
using test::ScanRecord;
using test::TemporaryVolume;

constexpr const char* kPictures = "Users/alice/Pictures/My.photoslibrary/resources/media/master/";

struct Scanner {
  std::string_view name;
  Integer finderID;
  /// Makes what the scanner finds, and the feature.
  Ref<FeatureInformation> (*prepare)(const TemporaryVolume& volume);
  void (*start)(FeatureInformation& feature, ScanRecord& scan, const TemporaryVolume& volume);
};

void PrintTo(const Scanner& scanner, std::ostream* out) { *out << scanner.name; }

/// Two categories, each with a folder of its own.
Ref<FeatureInformation> twoFolders(Integer finderID, const TemporaryVolume& volume) {
  volume.file("one/a", "1");
  volume.file("two/b", "22");
  return test::makeFeature(finderID, {{CategoryInfomationKind::Common, {volume.url("one/")}},
                                      {CategoryInfomationKind::Common, {volume.url("two/")}}});
}

template <Integer finderID>
Ref<FeatureInformation> prepareFolders(const TemporaryVolume& volume) {
  return twoFolders(finderID, volume);
}

template <auto scanJunk>
void startJunk(FeatureInformation& feature, ScanRecord& scan, const TemporaryVolume& /*volume*/) {
  scanJunk(feature, scan.progress(), scan.percent(), scan.singleDone(), scan.done(), scan.queue);
}

const std::vector<Scanner> kScanners = {
    {"SystemJunk", 1, prepareFolders<1>, startJunk<&SystemScanService::scanSystemJunk>},
    {"TrashBin", 2, prepareFolders<2>,
     [](FeatureInformation& feature, ScanRecord& scan, const TemporaryVolume&) {
       TrashBinScanService::scanTrashBin(feature, scan.progress(), scan.percent(), scan.singleDone(),
                                         scan.treeDone(), "", scan.queue);
     }},
    {"LargeAndOldFile", 3,
     [](const TemporaryVolume& volume) {
       const std::string found = volume.file("Users/alice/a.zip", test::ByteCount{60U << 20U});
       volume.script("tools/mdfind", "echo '" + found + "'");
       return test::makeLargeAndOldFeature();
     },
     [](FeatureInformation& feature, ScanRecord& scan, const TemporaryVolume&) {
       LargeAndOldFileService::scanLargeAndOldFile(feature, scan.progress(), scan.percent(),
                                                   scan.singleDone(), scan.treeDone(), scan.queue);
     }},
    {"Email", 4, prepareFolders<4>, startJunk<&EmailScanService::scanEmailJunk>},
    {"iTunes", 5, prepareFolders<5>, startJunk<&iTunesScanService::scaniTunesJunk>},
    {"Photo", 6,
     [](const TemporaryVolume& volume) {
       volume.file(std::string(kPictures) + "a.png", "1");
       return test::makeFeature(6, {{CategoryInfomationKind::Common, {}}});
     },
     startJunk<&PhotoScanService::scaniPhotoJunk>},
    {"Duplicate", 7,
     [](const TemporaryVolume& volume) {
       for (const std::string top : {"One/", "Two/"}) volume.file("Users/alice/Data/" + top + "a", "aaaa");
       for (const std::string name : {"x", "y"}) volume.file("Users/alice/Data/" + name, "same");
       return test::makeFeature(7, {{CategoryInfomationKind::Common, {}}});
     },
     [](FeatureInformation& feature, ScanRecord& scan, const TemporaryVolume& volume) {
       DuplicateScanService::scanDuplicate(feature, {volume.url("Users/alice/Data/")}, scan.progress(),
                                           scan.percent(), scan.singleDone(), scan.treeDone(), scan.queue,
                                           WeftQOS::UserInitiated);
     }},
    {"SuffixFinder", 77,
     [](const TemporaryVolume& volume) {
       volume.file("one/a.tmp", "1");
       return test::makeFeature(77, {{CategoryInfomationKind::Common, {}}});
     },
     [](FeatureInformation& feature, ScanRecord& scan, const TemporaryVolume& volume) {
       test::SuffixFinder::scan(feature, ".tmp", {volume.url("one/")}, scan.progress(), scan.percent(),
                                scan.treeDone(), scan.queue);
     }},
};

/// Stops the scan when the submission of a certain number comes in.
class StoppingQueue : public test::RecordingQueue {
 public:
  StoppingQueue(std::size_t number, std::function<void()> stop) : number_(number), stop_(std::move(stop)) {}
  void submit(Task task, Failure failure) override {
    if (++count_ == number_) stop_();
    RecordingQueue::submit(std::move(task), std::move(failure));
  }

 private:
  std::size_t number_;
  std::function<void()> stop_;
  std::atomic<std::size_t> count_{0};
};

class ScannerLife : public testing::TestWithParam<Scanner> {
 protected:
  ScannerLife() {
    SuperScanService::scanStatus.resetForTesting();
    volume.folder("tools");
    Host host =
        Host::macVolume(volume.path(), "alice", {std::string(TemporaryVolume::kBundleIdentifier), "", {}});
    host.setToolFolder(volume.path("tools"));
    Host::install(std::move(host));
    LogService::resetForTesting();
    DuplicateScanService::limitSize = 0;
    for (Integer kind = 0; kind < 7; ++kind) DuplicateScanService::childrenCateogryDict[kind] = "Kind";
    feature = GetParam().prepare(volume);
  }
  ~ScannerLife() override {
    SuperScanService::percentService.exchange(nullptr);
    test::drainMainQueue();  // reports that are on their way to a record of this test
    DuplicateScanService::limitSize = 512;
    DuplicateScanService::childrenCateogryDict.clear();
  }

  void start(ScanRecord& scan) { GetParam().start(*feature, scan, volume); }
  void run(ScanRecord& scan) {
    start(scan);
    ASSERT_TRUE(scan.waitUntilDone());
  }
  static std::optional<ScanState> status() { return SuperScanService::scanStatus.get(GetParam().finderID); }

  /// What a scan handed over or reported, and what the tree holds.
  [[nodiscard]] std::string resultOf(const ScanRecord& scan) const {
    std::string text = std::to_string(scan.treeSize);
    for (const auto& [index, result] : scan.results) {
      for (const auto& record : result.first) text += " " + std::to_string(index) + record->title;
    }
    for (const CategoryInformation& category : feature->categoryInfo) {
      text += " |";
      for (const FileInformation& record : category.childrens)
        text += " " + record.title + std::to_string(record.size);
    }
    return text;
  }
  /// The tasks that a scan submits to its queue.
  std::size_t submissions(std::string* result = nullptr) {
    ScanRecord scan;
    run(scan);
    EXPECT_EQ(status(), ScanState::end);
    if (result != nullptr) *result = resultOf(scan);
    return scan.queue->accepted();
  }
  /// A new scan, begun while the old one is stopped and held, gets a whole result, its own bar and its tree.
  void startAfterAStopAt(std::size_t held, bool isReleasedFirst, const std::string& result);

  TemporaryVolume volume;
  Ref<FeatureInformation> feature;
};

TEST_P(ScannerLife, stopAtAnySubmissionEndsTheScanOnce) {
  const std::size_t count = submissions();
  ASSERT_GT(count, 0U);
  for (std::size_t i = 1; i <= count; ++i) {
    ScanRecord scan;
    scan.queue = std::make_shared<StoppingQueue>(i, [this] { SuperScanService::stopScan(*feature); });
    run(scan);
    ASSERT_TRUE(test::drain(*scan.queue));
    test::drainMainQueue();
    EXPECT_EQ(scan.doneCount, 1) << i;
    EXPECT_EQ(status(), ScanState::end) << i;
    EXPECT_EQ(SuperScanService::percentService.get(), nullptr) << i;
  }
}

TEST_P(ScannerLife, secondStartAtAnySubmissionCallsNothingBack) {
  const std::size_t count = submissions();
  for (std::size_t i = 1; i <= count; ++i) {
    ScanRecord scan;
    ScanRecord second;
    const auto holding = std::make_shared<HoldingQueue>(i);
    scan.queue = holding;
    start(scan);
    ASSERT_TRUE(test::runMainLoopUntil([&] { return holding->holds(); }));
    start(second);
    EXPECT_EQ(status(), ScanState::start) << i;
    holding->release();
    ASSERT_TRUE(scan.waitUntilDone());
    EXPECT_EQ(scan.doneCount, 1) << i;
    EXPECT_EQ(second.doneCount, 0) << i;
    EXPECT_EQ(second.queue->accepted(), 0U) << i;
    EXPECT_TRUE(second.percents.empty() && second.progressCalls.empty() && second.singles.empty()) << i;
  }
}

void ScannerLife::startAfterAStopAt(std::size_t held, bool isReleasedFirst, const std::string& result) {
  ScanRecord old;
  ScanRecord next;
  const auto holding = std::make_shared<HoldingQueue>(held);
  const auto nextHolding = std::make_shared<HoldingQueue>(isReleasedFirst ? 1 : 1000);
  old.queue = holding;
  next.queue = nextHolding;
  start(old);
  ASSERT_TRUE(test::runMainLoopUntil([&] { return holding->holds(); }));
  SuperScanService::stopScan(*feature);
  start(next);
  if (isReleasedFirst) {
    holding->release();
    ASSERT_TRUE(test::runMainLoopUntil([&] { return old.doneCount > 0; }));
    EXPECT_EQ(status(), ScanState::start);
    nextHolding->release();
  }
  ASSERT_TRUE(next.waitUntilDone());
  EXPECT_LE(*std::max_element(next.percents.begin(), next.percents.end()), 1.0F);
  holding->release();
  ASSERT_TRUE(test::runMainLoopUntil([&] { return old.doneCount > 0; }));
  ASSERT_TRUE(test::drain(*holding));
  test::drainMainQueue();
  EXPECT_EQ(old.doneCount, 1);
  EXPECT_EQ(next.doneCount, 1);
  EXPECT_EQ(resultOf(next), result);
  EXPECT_EQ(status(), ScanState::end);
}

TEST_P(ScannerLife, startAfterAStopGetsAWholeResultBesideTheOldScan) {
  std::string result;
  const std::size_t count = submissions(&result);
  for (std::size_t i = 1; i <= count; ++i) {
    for (const bool isReleasedFirst : {true, false}) {
      startAfterAStopAt(i, isReleasedFirst, result);
      ASSERT_FALSE(HasFailure()) << i << isReleasedFirst;
    }
  }
}

TEST_P(ScannerLife, refusalsOfTheQueueLoseNothing) {
  std::string result;
  const std::size_t count = submissions(&result);
  const test::VirtualClock clock;
  ScanRecord scan;
  scan.queue->refuseNext(count + 2);
  run(scan);
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_EQ(resultOf(scan), result);
}

TEST_P(ScannerLife, queueThatIsShutDownEndsTheScanWithoutDoneAndTheNextOneStarts) {
  ScanRecord lost;
  lost.queue->refuseAll(WeftRunError::ShutDown);
  start(lost);
  ASSERT_TRUE(test::runMainLoopUntil([] { return status() == ScanState::end; }));
  EXPECT_EQ(lost.doneCount, 0);
  ScanRecord scan;
  run(scan);
  EXPECT_EQ(scan.doneCount, 1);
}

INSTANTIATE_TEST_SUITE_P(Scanners, ScannerLife, testing::ValuesIn(kScanners),
                         [](const testing::TestParamInfo<Scanner>& row) {
                           return std::string(row.param.name);
                         });

}  // namespace
}  // namespace sorrel
