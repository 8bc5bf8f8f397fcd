#include "SorrelFramework/Scan/SuperScanService.hpp"

#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "SorrelFramework/Scan/TreeWalk.hpp"
#include "Tests/Scan/TreeWalkKit.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/ScanKit.hpp"
#include "Tests/Support/VirtualClock.hpp"

namespace sorrel::test {
namespace {

// The walk over several roots at once.

class Roots : public Walk {
 protected:
  void runAll(const std::vector<URL>& urls) {
    SuperScanService::getListFromUrls(
        *feature, urls, NSControlStateValueOff, keys, 0, kScanID, scan.progress(), scan.percent(), {},
        [this](std::map<URL, FileRecords> found, std::map<URL, ScanFilesInformation> foundTotals) {
          allRecords = std::move(found);
          allTotals = std::move(foundTotals);
          places.push_back(scan.here());
          ++scan.doneCount;
        },
        scan.queue, feature->categoryInfo[0]);
  }
  [[nodiscard]] bool wait() {
    return runMainLoopUntil([this] { return scan.doneCount > 0; }) && drain(*scan.queue);
  }

  ScanRecord scan;
  std::map<URL, FileRecords> allRecords;
  std::map<URL, ScanFilesInformation> allTotals;
  std::vector<ScanRecord::Place> places;
};

TEST_F(Roots, doneComesOnceOnTheSerialQueueWithEveryRoot) {
  volume.file("one/a", "1");
  volume.file("two/b", "22");
  runAll({volume.url("one/"), volume.url("two/"), volume.url("missing/")});
  ASSERT_TRUE(wait());
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_TRUE(places.at(0).onSerial);
  EXPECT_EQ(scan.percents, std::vector<float>{1.0F});
  ASSERT_EQ(allRecords.size(), 3U);
  EXPECT_EQ(allRecords.at(volume.url("one/")).size(), 1U);
  EXPECT_EQ(allTotals.at(volume.url("two/")).fileSize, 2);
  EXPECT_TRUE(allRecords.at(volume.url("missing/")).empty());
  EXPECT_EQ(allTotals.at(volume.url("missing/")).fileNumber, 0);
}

TEST_F(Roots, rootsThatShareAFolderNumberTheirRecordsEachFromZero) {
  volume.file("one/first", "1");
  volume.file("one/two/b", "22");
  runAll({volume.url("one/"), volume.url("one/two/")});
  ASSERT_TRUE(wait());
  const auto inner = recordNamed(allRecords.at(volume.url("one/two/")), volume.url("one/two/"), "b");
  const auto outer = recordNamed(allRecords.at(volume.url("one/")), volume.url("one/"), "two/b");
  EXPECT_EQ(inner->url, outer->url);
  EXPECT_EQ(inner->finderID, 0);
  EXPECT_EQ(outer->finderID, 2);
}

TEST_F(Roots, taskThatTheQueueRefusesIsSubmittedAgainEveryHalfSecond) {
  const VirtualClock clock;
  volume.file("one/a", "1");
  scan.queue->refuseNext(3);
  runAll({volume.url("one/")});
  ASSERT_TRUE(wait());
  EXPECT_EQ(clock.waits(), (std::vector<std::uint64_t>{500'000, 500'000, 500'000}));
  EXPECT_EQ(scan.doneCount, 1);
}

TEST_F(Roots, queueThatShutDownDropsTheTask) {
  volume.file("one/a", "1");
  scan.queue->refuseNext(1, WeftRunError::ShutDown);
  runAll({volume.url("one/")});
  ASSERT_TRUE(runMainLoopUntil([this] { return scan.queue->refused() == 1; }));
  EXPECT_EQ(scan.queue->accepted(), 0U);
}

TEST_F(Roots, noRootsNeverCallDone) {
  runAll({});
  drainMainQueue();
  ASSERT_TRUE(drain(*scan.queue));
  EXPECT_EQ(scan.doneCount, 0);
  EXPECT_TRUE(scan.percents.empty());
}

TEST_F(Roots, progressRunsOnTheMainQueueInTheOrderOfTheWalk) {
  for (const char* name : {"one/c", "one/a", "one/b"}) volume.file(name, "1");
  runAll({volume.url("one/")});
  ASSERT_TRUE(wait());
  drainMainQueue();
  Names paths;
  for (const auto& [path, size] : scan.progressCalls) paths.push_back(path);
  EXPECT_EQ(paths, (Names{volume.path("one/a"), volume.path("one/b"), volume.path("one/c")}));
  for (const auto& place : scan.progressPlaces) EXPECT_TRUE(place.onMain);
}

}  // namespace
}  // namespace sorrel::test
