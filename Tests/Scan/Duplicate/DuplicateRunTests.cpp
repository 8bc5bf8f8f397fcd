#include "SorrelFramework/Scan/Duplicate/DuplicateRun.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <optional>
#include <thread>

#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Units/LogService.hpp"
#include "SorrelFramework/Units/StreamFileHash.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/ReplacedRead.hpp"
#include "Tests/Support/ScanKit.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

using test::ScanRecord;
using test::operator""_B;
using Names = std::vector<std::string>;
using Groups = std::vector<Names>;

constexpr Integer kFeature = 7;
constexpr std::string_view kData = "Users/alice/Data/";

/// Does something when the submission of a certain number comes in.
class CountingQueue : public test::RecordingQueue {
 public:
  void submit(Task task, Failure failure) override {
    if (++count == number) act();
    test::RecordingQueue::submit(std::move(task), std::move(failure));
  }
  std::function<void()> act;
  int number = 0;
  std::atomic<int> count{0};
};

class Stages : public testing::Test {
 protected:
  Stages() {
    SuperScanService::scanStatus.resetForTesting();
    StreamFileHashUnit::shard().scanState = static_cast<int>(ScanState::start);
    volume.install();
    LogService::resetForTesting();
    DuplicateScanService::limitSize = 0;
    DuplicateScanService::childrenCateogryDict = {{0, "File"},   {1, "Folder"},  {2, "Document"},
                                                  {3, "Media"},  {4, "Picture"}, {5, "Other"},
                                                  {6, "Archive"}};
    feature = test::makeFeature(kFeature, {{CategoryInfomationKind::Common, {}}});
    scan.queue = queue;
  }
  ~Stages() override {
    SuperScanService::percentService.exchange(nullptr);  // it tells a record that goes away now
    SuperScanService::scanStatus.resetForTesting();
    StreamFileHashUnit::shard().scanState = static_cast<int>(ScanState::start);
    DuplicateScanService::limitSize = 512;
    DuplicateScanService::childrenCateogryDict.clear();
  }

  void start(ScanRecord& record, std::string_view place = kData) {
    DuplicateScanService::scanDuplicate(*feature, {volume.url(place)}, record.progress(), record.percent(),
                                        record.singleDone(), record.treeDone(), record.queue,
                                        WeftQOS::UserInitiated);
  }
  void run() {
    start(scan);
    ASSERT_TRUE(scan.waitUntilDone());
    if (!percent) percent = SuperScanService::percentService.get();
  }
  void stop() {
    percent = SuperScanService::percentService.get();  // which lets go of it now
    SuperScanService::stopScan(*feature);
  }
  void runWithAStopAt(int submission) {
    queue->number = submission;
    queue->act = [this] { stop(); };
    run();
  }
  [[nodiscard]] std::int64_t steps() const { return percent->currentStep; }

  void analyse(DuplicatesBySize files, DuplicatesBySize folders,
               std::shared_ptr<PercentService> bar = nullptr) {
    DuplicateScanService::analysisDataForDuplicate(
        std::move(files), std::move(folders), *feature, scan.progress(), scan.percent(), scan.singleDone(),
        scan.treeDone(), scan.queue, std::move(bar), WeftQOS::UserInitiated);
    waitForDone();
  }
  void organise(DuplicatesByHash files, DuplicatesByHash folders) {
    DuplicateScanService::organizeDataForDuplicate(std::move(files), std::move(folders), *feature,
                                                   scan.progress(), scan.percent(), scan.singleDone(),
                                                   scan.treeDone(), scan.queue, nullptr);
    waitForDone();
  }
  void waitForDone() {
    ASSERT_TRUE(test::runMainLoopUntil([this] { return scan.doneCount > 0; }));
    test::drainMainQueue();
  }

  DuplicateInfo file(const std::string& name, std::string_view content) {
    return {1,
            static_cast<Integer>(content.size()),
            URL::fileURL(volume.file(std::string(kData) + name, content), false),
            true,
            {}};
  }
  /// A folder with one file, and with folders of these sizes, as it says, below it.
  DuplicateInfo folder(const std::string& name, std::string_view content,
                       const std::vector<std::int64_t>& below = {}) {
    volume.file(std::string(kData) + name + "/x", content);
    auto walk = std::make_shared<WalkedSizes>();
    for (const std::int64_t size : below) walk->folders.push_back({size, walk->folders.size()});
    return {1, static_cast<Integer>(content.size()), volume.url(std::string(kData) + name + "/"), false,
            SubfolderSizes(walk, 0, below.size())};
  }
  void twinFolders() {
    for (const std::string top : {"One/", "Two/"}) volume.file(std::string(kData) + top + "a", "aaaa");
  }
  void twinFiles() {
    for (const std::string name : {"x", "y"}) volume.file(std::string(kData) + name, "same");
  }

  [[nodiscard]] CategoryInformation& all() const { return feature->categoryInfo[0]; }
  [[nodiscard]] Groups groups() const {
    Groups found;
    for (const FileInformation& header : all().childrens)
      found.push_back(test::namesOf(header.childrens.refs(), volume.url(kData)));
    return found;
  }
  /// Kinds of the rows that hold the group.
  [[nodiscard]] std::vector<Integer> rowsOf(std::size_t group) const {
    std::vector<Integer> rows;
    for (const CategoryInformation& row : *all().childrenCateogry) {
      for (const FileInformation& header : row.childrens)
        if (&header == &all().childrens[group]) rows.push_back(row.finderID);
    }
    return rows;
  }
  void expectStoppedWithoutATree() const {
    EXPECT_EQ(scan.doneCount, 1);
    EXPECT_EQ(scan.treeSize, 0);
    EXPECT_TRUE(all().childrens.empty());
    EXPECT_FALSE(all().childrenCateogry.has_value());
    EXPECT_EQ(SuperScanService::scanStatus.get(kFeature), ScanState::end);
    LogService::shard().flushForTesting();
    const std::string text = test::contentOf(LogService::shard().logPath.path());
    EXPECT_NE(text.find("DuplicateScanService stopDuplicate Supend\n"), std::string::npos);
    EXPECT_EQ(text.find("DuplicateScanService Finish"), std::string::npos);
  }

  test::TemporaryVolume volume;
  ScanRecord scan;
  std::shared_ptr<CountingQueue> queue = std::make_shared<CountingQueue>();
  Ref<FeatureInformation> feature;
  std::shared_ptr<PercentService> percent;
};

// Steps of the bar.

TEST_F(Stages, scanWithFolderCandidatesTakesFourSteps) {
  twinFolders();
  run();
  EXPECT_EQ(percent->totalStep, 4);
  EXPECT_EQ(steps(), 4);
  EXPECT_EQ(scan.percents.back(), 1.0F);
}

TEST_F(Stages, scanWithoutFolderCandidatesTakesThree) {
  twinFiles();
  run();
  EXPECT_EQ(groups(), Groups{Names({"x", "y"})});
  EXPECT_EQ(percent->totalStep, 4);
  EXPECT_EQ(steps(), 3);
  EXPECT_EQ(scan.percents.back(), 1.0F);
}

TEST_F(Stages, candidatesThatAreAllDroppedStillTakeTheStepOfTheFolderHash) {
  const auto bar = std::make_shared<PercentService>(scan.percent(), 4);
  analyse({}, {{4, {folder("One", "aaaa", {4}), folder("Two", "aaaa")}}}, bar);
  EXPECT_TRUE(groups().empty());
  EXPECT_EQ(bar->currentStep, 3);
}

// Stops. The queue gets the candidates, the end of the walk, the hashes of folders, those of files.

TEST_F(Stages, stopBeforeTheWalkEndsWithoutATree) {
  twinFolders();
  twinFiles();
  runWithAStopAt(1);
  expectStoppedWithoutATree();
  EXPECT_EQ(steps(), 1);
}

TEST_F(Stages, stopAtTheEndOfTheWalkEndsWithoutATree) {
  twinFolders();
  twinFiles();
  const test::ReplacedRead reads;
  runWithAStopAt(2);
  expectStoppedWithoutATree();
  EXPECT_EQ(steps(), 1);
  EXPECT_TRUE(reads.notes().empty());
}

TEST_F(Stages, stopAtTheEndOfTheFolderHashEndsWithoutATree) {
  twinFolders();
  twinFiles();
  runWithAStopAt(3);
  expectStoppedWithoutATree();
  EXPECT_EQ(steps(), 3);
  EXPECT_EQ(queue->count, 3);  // no file hash was begun
}

TEST_F(Stages, stopAtTheEndOfTheFileHashEndsWithoutATree) {
  twinFolders();
  twinFiles();
  runWithAStopAt(4);
  expectStoppedWithoutATree();
  EXPECT_EQ(queue->count, 4);
}

TEST_F(Stages, stopWithinTheFolderHashReadsNoFileAfterIt) {
  twinFolders();
  twinFiles();
  const test::ReplacedRead reads([this](std::size_t number) {
    if (number == 0) stop();
    return 0;
  });
  run();
  expectStoppedWithoutATree();
  // Of each thread of the hash one read may be under way.
  EXPECT_LE(reads.notes().size(), 2U);
}

TEST_F(Stages, stopWithinTheFileHashEndsWithoutATree) {
  twinFiles();
  const test::ReplacedRead reads([this](std::size_t number) {
    if (number == 0) stop();
    return 0;
  });
  run();
  expectStoppedWithoutATree();
}

TEST_F(Stages, manyPlacesThatAreStoppedEndOnce) {
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
  // The last of the places has let go of the scan.
  ASSERT_TRUE(test::runMainLoopUntil([this] { return queue.use_count() == 2; }));
  expectStoppedWithoutATree();
}

TEST_F(Stages, stopBeforeTheTreeLeavesTheOldOne) {
  organise({{"a", {file("1", "same"), file("2", "same")}}}, {});
  ASSERT_EQ(groups().size(), 1U);
  SuperScanService::stopScan(*feature);
  scan.doneCount = 0;
  organise({}, {});
  EXPECT_EQ(scan.treeSize, 0);
  EXPECT_EQ(groups().size(), 1U);
  EXPECT_EQ(SuperScanService::scanStatus.get(kFeature), ScanState::end);
}

TEST_F(Stages, stopWhileTheTreeIsBuiltLeavesWholeGroupsAndTheirBytes) {
  DuplicatesByHash twins;
  for (int i = 0; i < 400; ++i) {
    const std::string name = std::to_string(i);
    twins[name] = {file(name, name), file(name + " copy", name), file(name + " again", name)};
  }
  std::thread stopper([this] { SuperScanService::stopScan(*feature); });
  organise(std::move(twins), {});
  stopper.join();
  EXPECT_EQ(scan.doneCount, 1);
  std::int64_t bytes = 0;
  for (const FileInformation& header : all().childrens) {
    EXPECT_EQ(header.childrens.size(), 3U);
    bytes += header.size;
  }
  EXPECT_EQ(scan.treeSize, bytes);
}

// A new scan behind a stop.

TEST_F(Stages, newScanEndsTheOneThatHasNotSeenItsStop) {
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

TEST_F(Stages, runThatIsReplacedLeavesTheEntryToTheNewOne) {
  int ended = 0;
  const auto done = [&ended](FeatureInformation&, std::int64_t size) { ended += size == 0 ? 1 : 100; };
  const auto begin = [&] {
    return std::make_shared<DuplicateRun>(*feature, done, scan.queue, nullptr, WeftQOS::Default);
  };
  SuperScanService::scanStatus.set(kFeature, ScanState::start);
  const auto old = begin();
  EXPECT_FALSE(old->isStopped());
  const auto next = begin();
  EXPECT_TRUE(old->isReplaced());
  EXPECT_TRUE(old->isStopped());
  EXPECT_TRUE(old->endsByStop());
  EXPECT_TRUE(old->endsByStop());
  EXPECT_EQ(ended, 1);
  EXPECT_EQ(SuperScanService::scanStatus.get(kFeature), ScanState::start);
  EXPECT_FALSE(next->endsByStop());
  next->finish(5);
  EXPECT_EQ(ended, 101);
  EXPECT_EQ(SuperScanService::scanStatus.get(kFeature), ScanState::end);
}

TEST_F(Stages, runOfAnotherFeatureReplacesNothing) {
  const auto other = test::makeFeature(kFeature + 1, {{CategoryInfomationKind::Common, {}}});
  const DuplicateRun one(*feature, {}, scan.queue, nullptr, WeftQOS::Default);
  const DuplicateRun two(*other, {}, scan.queue, nullptr, WeftQOS::Default);
  EXPECT_FALSE(one.isReplaced());
}

TEST_F(Stages, runThatSawAStopStaysStopped) {
  int ended = 0;
  DuplicateRun one(
      *feature, [&ended](FeatureInformation&, std::int64_t) { ++ended; }, scan.queue, nullptr,
      WeftQOS::Default);
  EXPECT_FALSE(one.endsByStop());
  SuperScanService::scanStatus.set(kFeature, ScanState::suspend);
  EXPECT_TRUE(one.isStopped());
  SuperScanService::scanStatus.set(kFeature, ScanState::end);
  EXPECT_TRUE(one.isStopped());
  EXPECT_TRUE(one.endsByStop());
  EXPECT_TRUE(one.endsByStop());
  EXPECT_EQ(ended, 1);
}

// The third stage alone.

TEST_F(Stages, analysisBehindAStopReadsNothing) {
  const auto bar = std::make_shared<PercentService>(scan.percent(), 4);
  const test::ReplacedRead reads;
  SuperScanService::stopScan(*feature);
  StreamFileHashUnit::shard().scanState = static_cast<int>(ScanState::start);
  analyse({{4, {file("a", "same"), file("b", "same")}}}, {}, bar);
  expectStoppedWithoutATree();
  EXPECT_EQ(bar->currentStep, 0);
  EXPECT_TRUE(reads.notes().empty());
}

TEST_F(Stages, analysisOfNothingEndsWithSevenEmptyRows) {
  analyse({}, {});
  EXPECT_EQ(scan.treeSize, 0);
  ASSERT_TRUE(all().childrenCateogry.has_value());
  EXPECT_EQ(all().childrenCateogry->size(), 7U);
  EXPECT_EQ(SuperScanService::scanStatus.get(kFeature), ScanState::end);
}

TEST_F(Stages, analysisHashesFilesAndFolders) {
  analyse({{4, {file("a", "same"), file("b", "same"), file("c", "else")}}, {5, {file("d", "alone")}}},
          {{6, {folder("One", "twins!"), folder("Two", "twins!"), folder("Three", "loner!")}}});
  EXPECT_EQ(groups(), (Groups{Names{"One/", "Two/"}, Names{"a", "b"}}));
  EXPECT_EQ(scan.treeSize, 20);
}

TEST_F(Stages, analysisDropsSizesOfFoldersBelowACandidate) {
  analyse({}, {{6, {folder("One", "twins!"), folder("Two", "twins!")}},
               {4, {folder("Three", "same", {6}), folder("Four", "same")}}});
  EXPECT_EQ(groups(), Groups{Names({"Three/", "Four/"})});
}

TEST_F(Stages, analysisDropsCandidatesBelowTheLimit) {
  DuplicateScanService::limitSize = 1;
  analyse({}, {{1023, {folder("One", std::string(1023, 'x')), folder("Two", std::string(1023, 'x'))}},
               {1024, {folder("Three", std::string(1024, 'x')), folder("Four", std::string(1024, 'x'))}}});
  EXPECT_EQ(groups(), Groups{Names({"Three/", "Four/"})});
}

TEST_F(Stages, filesOfHashedFoldersAreReadOnce) {
  twinFolders();
  const test::ReplacedRead reads;
  run();
  EXPECT_EQ(groups(), Groups{Names({"One/", "Two/"})});
  EXPECT_EQ(reads.notes().size(), 4U);  // each file to its end, which is a read of its own
}

TEST_F(Stages, sizesWithOneFileAreNeverRead) {
  volume.file(std::string(kData) + "a", "1");
  volume.file(std::string(kData) + "sub/b", "22");
  const test::ReplacedRead reads;
  run();
  EXPECT_TRUE(reads.notes().empty());
}

TEST_F(Stages, fileThatIsGoneBeforeItIsReadDropsOut) {
  DuplicateInfo gone = file("c", "same");
  gone.path = volume.url(std::string(kData) + "gone");
  analyse({{4, {file("a", "same"), gone, file("b", "same")}}}, {});
  EXPECT_EQ(groups(), Groups{Names({"a", "b"})});
}

// The fourth stage alone.

TEST_F(Stages, groupOfThreeFilesOfAMillionBytesIsThreeMillionBytes) {
  DuplicatesByHash twins;
  for (const std::string name : {"a", "b", "c"}) {
    twins["hash"].push_back(
        {1, 1'000'000, URL::fileURL(volume.file(std::string(kData) + name, 1'000'000_B), false), true, {}});
  }
  organise(std::move(twins), {});
  ASSERT_EQ(all().childrens.size(), 1U);
  EXPECT_EQ(all().childrens[0].size, 3'000'000);
  EXPECT_EQ(scan.treeSize, 3'000'000);
}

TEST_F(Stages, hashWithOneMemberIsNoGroup) {
  organise({{"a", {file("1", "same")}}}, {{"b", {folder("One", "same")}}});
  EXPECT_TRUE(groups().empty());
  EXPECT_EQ(scan.treeSize, 0);
}

TEST_F(Stages, groupsComeTheLargestFirstAndThoseOfOneWeightByTheirPaths) {
  DuplicatesByHash twins;
  Groups wanted = {Names{"0", "0 copy", "0 too"}};
  twins["0"] = {file("0", "12"), file("0 copy", "12"), file("0 too", "12")};
  for (const char name : {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l'}) {
    const std::string one(1, name);
    twins[one] = {file(one, "12"), file(one + " copy", "12")};
    wanted.push_back({one, one + " copy"});
  }
  twins["z"] = {file("1", "z"), file("2", "z"), file("3", "z")};
  wanted.push_back({"1", "2", "3"});
  organise(std::move(twins), {});
  EXPECT_EQ(groups(), wanted);
}

TEST_F(Stages, memberThatIsGoneLeavesItsGroupSmaller) {
  DuplicateInfo gone = file("9", "same");
  gone.path = volume.url(std::string(kData) + "gone");
  organise({{"a", {gone, file("1", "same"), file("2", "same")}}, {"b", {file("3", "some"), gone}}}, {});
  EXPECT_EQ(groups(), Groups{Names({"1", "2"})});
  EXPECT_EQ(all().childrens[0].childrens[0].finderID, 0);
  EXPECT_EQ(scan.treeSize, 8);
}

TEST_F(Stages, groupsStandInTheRowsOfTheirKinds) {
  organise({{"a", {file("1.jpg", "123456"), file("2.jpg", "123456")}},
            {"b", {file("1.unheard", "12345"), file("2.unheard", "12345")}}},
           {{"c", {folder("One", "same"), folder("Two", "same")}}});
  ASSERT_EQ(all().childrens.size(), 3U);
  EXPECT_EQ(rowsOf(0), (std::vector<Integer>{0, 4}));
  EXPECT_EQ(rowsOf(1), (std::vector<Integer>{0, 5}));
  EXPECT_EQ(rowsOf(2), (std::vector<Integer>{1, 5}));
  EXPECT_EQ(all().childrens[2].fileKind, rawValue(FilesKind::Folder));
  for (Integer i = 0; i < 3; ++i) EXPECT_EQ(all().childrens[static_cast<std::size_t>(i)].finderID, i);
}

TEST_F(Stages, kindsAreThoseOfTheFirstMember) {
  organise({{"a", {file("1.jpg", "same"), file("2.unheard", "same")}}}, {});
  EXPECT_EQ(rowsOf(0), (std::vector<Integer>{0, 4}));
}

TEST_F(Stages, bytesOfAFolderAreThoseOnDiskWithHiddenFiles) {
  volume.file(std::string(kData) + "One/.hidden", "12345");
  organise({}, {{"a", {folder("One", "same"), folder("Two", "same")}}});
  ASSERT_EQ(all().childrens.size(), 1U);
  EXPECT_EQ(all().childrens[0].childrens[0].size, 9);
  EXPECT_EQ(scan.treeSize, 13);
}

TEST_F(Stages, treeIsBuiltOnASerialQueueOfItsOwn) {
  organise({{"a", {file("1", "same"), file("2", "same")}}}, {});
  ASSERT_EQ(scan.donePlaces.size(), 1U);
  EXPECT_FALSE(scan.donePlaces[0].onSerial);
  EXPECT_FALSE(scan.donePlaces[0].onMain);
  EXPECT_EQ(queue->count, 0);
}

TEST_F(Stages, featureWithoutACategoryIsAFatalStop) {
  EXPECT_EQ(test::inChild([this] {
              feature->categoryInfo.clear();
              organise({}, {});
              return std::string("lived");
            }),
            "ended by signal 6");
}

// The limit.

TEST_F(Stages, limitIsGivenInKibibytes) {
  DuplicateScanService::limitSize = 512;
  EXPECT_EQ(duplicateLimit(), 524288);
  DuplicateScanService::limitSize = -1;
  EXPECT_EQ(duplicateLimit(), -1024);
}

TEST_F(Stages, limitThatDoesNotFitIsAFatalStop) {
  DuplicateScanService::limitSize = INT64_MAX / 1024;
  EXPECT_EQ(duplicateLimit(), INT64_MAX - 1023);
  ++DuplicateScanService::limitSize;
  EXPECT_EQ(test::inChild([] { return std::to_string(duplicateLimit()); }), "ended by signal 6");
}

}  // namespace
}  // namespace sorrel
