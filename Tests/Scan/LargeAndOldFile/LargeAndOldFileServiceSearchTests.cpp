#include "SorrelFramework/Scan/LargeAndOldFile/LargeAndOldFileService.hpp"

#include <gtest/gtest.h>
#include <unistd.h>
#include <TestPlaces.hpp>

#include <algorithm>
#include <filesystem>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Units/LogService.hpp"
#include "Tests/Scan/LargeAndOldFile/LargeAndOldFileServiceKit.hpp"
#include "Tests/Support/ActingAsPlainUser.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel::test {
namespace {

// How the large files are found: by the system's search tool, and without it by a walk.
using LargeAndOldFileSearchTest = LargeAndOldFileTest;

const std::string kTools = std::string(SORREL_BINARY_DIR) + "/libexec/sorrel";

TEST_F(LargeAndOldFileSearchTest, withoutTheToolTheHomeIsWalkedAndTheLogSaysSo) {
  big("Movies/a.mov", 500_MiB);
  run();
  EXPECT_EQ(names(), Names{"Movies/a.mov"});
  EXPECT_TRUE(hasLogged("LargeAndOldScanService Start"));
  EXPECT_TRUE(hasLogged("LargeAndOldScanService Code = 2"));
  EXPECT_FALSE(hasLogged("LargeAndOldScanService Scanning"));
}

TEST_F(LargeAndOldFileSearchTest, walkTakesRegularFilesFromFiftyMebibytesOn) {
  big("exact", {52'428'800});
  big("less", {52'428'799});
  volume.folder("Users/alice/folder");
  volume.link("Users/alice/link", "exact");
  volume.fifo("Users/alice/pipe");
  volume.file("Users/bob/exact", 60_MiB);
  run();
  EXPECT_EQ(names(), Names{"exact"});
}

TEST_F(LargeAndOldFileSearchTest, walkSkipsHiddenItemsAndTheInsidesOfPackages) {
  big(".hidden.zip");
  big(".cache/a.zip");
  big("Game.app/Contents/data.zip");
  big("Library/a.zip");
  run();
  EXPECT_EQ(names(), Names{"Library/a.zip"});
}

TEST_F(LargeAndOldFileSearchTest, walkStopsAtTheNextItem) {
  big("a.zip");
  SuperScanService::scanStatus.set(kFeature, ScanState::suspend);
  const auto bar = std::make_shared<PercentService>(scan.percent(), 3, 1.0F);
  LargeAndOldFileService::scanProLargeAndOldFileCommon(*feature, scan.progress(), scan.percent(),
                                                       scan.singleDone(), scan.treeDone(), scan.queue, bar);
  ASSERT_TRUE(scan.waitUntilDone());
  EXPECT_EQ(names(), Names());
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_EQ(SuperScanService::scanStatus.get(kFeature), ScanState::end);
}

TEST_F(LargeAndOldFileSearchTest, foldersThatCannotBeReadArePassedOver) {
  big("Closed/a.zip");
  big("Open/a.zip");
  volume.setMode(".", 0755);
  volume.setMode("Users/alice/Closed", 0);
  {
    const ActingAsPlainUser somebody;
    run();
  }
  volume.setMode("Users/alice/Closed", 0700);
  EXPECT_EQ(names(), Names{"Open/a.zip"});
}

// The tool

TEST_F(LargeAndOldFileSearchTest, toolIsAskedForTheLargeFilesOfTheHome) {
  useToolThatPrints("");
  run();
  EXPECT_EQ(contentOf(volume.path("arguments")),
            "-onlyin\n" + volume.path("Users/alice") + "\nkMDItemFSSize > 52428800\n");
  EXPECT_EQ(names(), Names());
  EXPECT_EQ(scan.treeSize, 0);
  EXPECT_FALSE(hasLogged("LargeAndOldScanService Code = 2"));
}

TEST_F(LargeAndOldFileSearchTest, pathsOutsideTheHomeAreDropped) {
  const std::string inside = big("a.zip");
  std::string lines = volume.file("etc/a.zip", 60_MiB) + "\n";
  lines += volume.file("Users/bob/a.zip", 60_MiB) + "\n";
  lines += volume.file("Users/alice2/a.zip", 60_MiB) + "\n";
  lines += volume.path("Users/alice/../bob/a.zip") + "\n";
  lines += volume.path("Users/alice/..") + "\n";
  lines += inside + std::string(1, '\0') + ".part\n";
  lines += "/Users/alice/a.zip\n" + inside + "\na.zip\n\n";
  useToolThatPrints(lines);
  run();
  EXPECT_EQ(names(), Names{"a.zip"});
}

TEST_F(LargeAndOldFileSearchTest, linesThatAreNoRegularFileAreDropped) {
  const std::string file = big("a.zip", 60_MiB);
  volume.folder("Users/alice/folder");
  volume.link("Users/alice/link", "a.zip");
  std::string lines;
  for (const char* name : {"/folder", "/link", "/gone.zip", "", "/"}) {
    lines += volume.path("Users/alice") + name + "\n";
  }
  useToolThatPrints(lines + file);  // without a trailing line feed
  run();
  EXPECT_EQ(names(), Names{"a.zip"});
}

TEST_F(LargeAndOldFileSearchTest, recordsOfTheToolAreMadeOnTheSerialQueueInTheOrderOfItsLines) {
  useToolThatPrints(big("b.zip") + "\n" + big("a.zip") + "\n");
  run();
  EXPECT_EQ(names(), (Names{"b.zip", "a.zip"}));
  EXPECT_EQ(all().childrens[1].finderID, 1);
  EXPECT_GT(scan.queue->accepted(), 0U);
}

TEST_F(LargeAndOldFileSearchTest, bothRoadsGiveTheSameTreeButForHiddenFiles) {
  big("a/deep/a.zip");
  big("a.b/b.mov", 500_MiB);
  big("Library/Caches/c.iso", 100_MiB);
  big("Game.app/Contents/data.zip");
  big("plain");
  big("exactly", {52'428'801});
  volume.setModified("Users/alice/plain", 1'000'000'000);
  using Row = std::tuple<std::string, Integer, std::string, double>;
  const auto tree = [this] {
    std::vector<Row> rows;
    for (std::size_t i = 0; i <= 12; ++i) {
      const CategoryInformation& category = i == 0 ? all() : (*all().childrenCateogry)[i - 1];
      rows.emplace_back(category.title, category.size, "", 0);
      for (const FileInformation& file : category.childrens) {
        rows.emplace_back(file.title, file.size, file.hashValueString.str(), file.date.secondsSince1970);
      }
    }
    return rows;
  };
  run();
  const auto walked = tree();
  EXPECT_EQ(all().childrens.size(), 5U);

  useTools(kTools);
  scan.doneCount = 0;
  scan.percents.clear();
  run();
  EXPECT_EQ(tree(), walked);
  EXPECT_FALSE(hasLogged("LargeAndOldScanService Code = 2\n<"));

  big(".hidden.zip");
  scan.doneCount = 0;
  scan.percents.clear();
  run();
  EXPECT_EQ(names().at(0), ".hidden.zip");
  EXPECT_EQ(all().childrens.size(), 6U);
}

TEST_F(LargeAndOldFileSearchTest, fileOfExactlyFiftyMebibytesIsNotAskedFor) {
  big("exact", {52'428'800});
  useTools(kTools);
  run();
  EXPECT_EQ(names(), Names());
}

TEST_F(LargeAndOldFileSearchTest, stopWhileTheToolRunsStillEnds) {
  useToolThatPrints(big("a.zip") + "\n");
  start();
  SuperScanService::stopScan(*feature);
  ASSERT_TRUE(scan.waitUntilDone());
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_EQ(SuperScanService::scanStatus.get(kFeature), ScanState::end);
  EXPECT_EQ(SuperScanService::percentService.get(), nullptr);
}

TEST_F(LargeAndOldFileSearchTest, stopEndsAToolThatWouldRunForLongAndKeepsWhatItPrinted) {
  const std::string found = big("a.zip");
  const std::string cut = big("b.zip");
  const std::string mark = volume.path("printed");
  volume.script("tools/mdfind", "trap '' INT; printf '%s\\n%s' '" + found + "' '" + cut + "'; : >'" + mark +
                                    "'; exec /bin/sleep 1000");
  useTools(volume.path("tools"));
  start();
  ASSERT_TRUE(runMainLoopUntil([&] { return std::filesystem::exists(mark); }));
  SuperScanService::stopScan(*feature);
  ASSERT_TRUE(scan.waitUntilDone());
  EXPECT_EQ(names(), Names{"a.zip"});
}

TEST_F(LargeAndOldFileSearchTest, progressRunsForEachRecordOnTheMainQueueBeforeTheEnd) {
  const std::string film = big("b.mov", 70_MiB);
  const std::string archive = big("a.zip");
  for (const bool hasTool : {true, false}) {
    if (hasTool) useToolThatPrints(film + "\n" + archive + "\n/missing\n");
    if (!hasTool) useTools(volume.path("no tools"));
    scan.doneCount = 0;
    scan.percents.clear();
    scan.progressCalls.clear();
    std::size_t atDone = 0;
    scan.onDone = [&] { atDone = scan.progressCalls.size(); };
    run();
    std::ranges::sort(scan.progressCalls);
    EXPECT_EQ(scan.progressCalls,
              (std::vector<std::pair<std::string, std::int64_t>>{{archive, 60 * kMiB}, {film, 70 * kMiB}}));
    EXPECT_EQ(atDone, 2U) << hasTool;
  }
  for (const auto& place : scan.progressPlaces) EXPECT_TRUE(place.onMain);
}

TEST_F(LargeAndOldFileSearchTest, scanChangesNothing) {
  big("Movies/a.mov");
  big("Game.app/Contents/data.zip");
  volume.file("Users/alice/less", "1");
  volume.setModified("Users/alice/Movies/a.mov", 1'000'000'000);
  // The log is the only file that a scan writes.
  const auto items = [this] {
    auto entries = snapshotOf(volume.path("Users/alice"));
    std::erase_if(entries, [](const TreeEntry& entry) { return entry.path.ends_with(".txt"); });
    return entries;
  };
  LogService::shard().log(LogService::LogLevel::Info, "");
  LogService::shard().flushForTesting();
  const auto before = items();
  for (const std::string& tools : {volume.path("no tools"), kTools}) {
    useTools(tools);
    scan.doneCount = 0;
    scan.percents.clear();
    run();
    EXPECT_EQ(names(), Names{"Movies/a.mov"});
    log();
    EXPECT_EQ(items(), before) << tools;
  }
}

}  // namespace
}  // namespace sorrel::test
