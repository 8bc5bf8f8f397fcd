#include "SorrelFramework/Scan/LargeAndOldFile/LargeAndOldFileService.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "SorrelFramework/Scan/PercentService.hpp"
#include "Tests/Scan/LargeAndOldFile/LargeAndOldFileServiceKit.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/ScanKit.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel::test {
namespace {

using Kinds = std::set<Kind>;

// The kinds

TEST_F(LargeAndOldFileTest, kindsAreTheIndexesOfTheRows) {
  const std::array kinds = {Kind::Archives, Kind::Picture, Kind::Movies,   Kind::Music,
                            Kind::Other,    Kind::OneYear, Kind::OneMonth, Kind::OneWeek,
                            Kind::LastWeek, Kind::Huge,    Kind::Average,  Kind::Small};
  for (std::size_t i = 0; i < kinds.size(); ++i) EXPECT_EQ(rawValue(kinds[i]), static_cast<Integer>(i));
  EXPECT_EQ(LargeAndOldFileService::HugeSize, 500 * kMiB);
  EXPECT_EQ(LargeAndOldFileService::AverageSize, 100 * kMiB);
}

class TypeOfFile : public LargeAndOldFileTest,
                   public testing::WithParamInterface<std::pair<std::string, Kind>> {};

TEST_P(TypeOfFile, isThatOfTheFirstWordInItsTypeTree) {
  const auto& [name, kind] = GetParam();
  EXPECT_EQ(LargeAndOldFileService::sortTypeFile(*record(volume.file(name), 0)), rawValue(kind));
}

INSTANTIATE_TEST_SUITE_P(
    LargeAndOldFile, TypeOfFile,
    testing::Values(std::pair("a.zip", Kind::Archives), std::pair("a.tar", Kind::Archives),
                    std::pair("a.JPG", Kind::Picture), std::pair("a.heic", Kind::Picture),
                    // com.apple.disk-image-udif precedes public.archive in the tree.
                    std::pair("a.dmg", Kind::Picture), std::pair("a.iso", Kind::Picture),
                    std::pair("a.mp4", Kind::Movies),
                    // public.movie precedes public.audiovisual-content.
                    std::pair("a.mkv", Kind::Movies), std::pair("a.mp3", Kind::Music),
                    std::pair("a.flac", Kind::Music), std::pair("a.docx", Kind::Other),
                    std::pair("a.pdf", Kind::Other), std::pair("a", Kind::Other),
                    std::pair("a.webarchive", Kind::Archives), std::pair("a.unheard-of", Kind::Other)));

TEST_F(LargeAndOldFileTest, fileThatIsGoneIsOther) {
  EXPECT_EQ(LargeAndOldFileService::sortTypeFile(*record(volume.path("gone.zip"), 0)), rawValue(Kind::Other));
}

// The rows of one record

TEST_F(LargeAndOldFileTest, recordSitsInThreeRowsAndInAll) {
  const auto file = record(volume.file("a.zip"), 7);
  add(file);
  EXPECT_EQ(kindsOf(*file), (Kinds{Kind::Archives, Kind::LastWeek, Kind::Small}));
  for (const Kind kind : {Kind::Archives, Kind::LastWeek, Kind::Small}) EXPECT_EQ(row(kind).size, 7);
  EXPECT_EQ(row(Kind::Other).size, 0);
  EXPECT_EQ(all().childrens.refs(), std::vector{file});
  EXPECT_EQ(all().size, 7);
}

TEST_F(LargeAndOldFileTest, payloadNamesTheRowsByTheirKinds) {
  const auto file = record(volume.file("a.mp3"), 7);
  add(file);
  const auto* const rows = std::any_cast<LargeAndOldFileService::Rows>(&file->attachInformation);
  ASSERT_NE(rows, nullptr);
  EXPECT_EQ(*rows, (std::map<Integer, CategoryInformation*>{
                       {3, &row(Kind::Music)}, {8, &row(Kind::LastWeek)}, {11, &row(Kind::Small)}}));
}

TEST_F(LargeAndOldFileTest, ageLimitsAreExclusive) {
  const double now = 2e9;
  const std::vector<std::pair<double, Kind>> ages = {
      {365 * kDay + 1, Kind::OneYear},
      {365 * kDay, Kind::OneMonth},
      {30 * kDay + 1, Kind::OneMonth},
      {30 * kDay, Kind::OneWeek},
      {7 * kDay + 1, Kind::OneWeek},
      {7 * kDay, Kind::LastWeek},
      {0, Kind::LastWeek},
      {-kDay, Kind::LastWeek},
  };
  for (const auto& [age, kind] : ages) {
    const auto file = record(volume.path("a"), 1, {now - age});
    add(file, now);
    EXPECT_EQ(kindsOf(*file), (Kinds{Kind::Other, kind, Kind::Small})) << age;
  }
}

TEST_F(LargeAndOldFileTest, sizeLimitsAreInclusive) {
  const std::vector<std::pair<std::int64_t, Kind>> sizes = {
      {524'288'001, Kind::Huge},    {524'288'000, Kind::Huge},  {524'287'999, Kind::Average},
      {104'857'600, Kind::Average}, {104'857'599, Kind::Small}, {52'428'800, Kind::Small},
  };
  for (const auto& [size, kind] : sizes) {
    const auto file = record(volume.path("a"), size);
    add(file);
    EXPECT_EQ(kindsOf(*file), (Kinds{Kind::Other, Kind::LastWeek, kind})) << size;
  }
}

TEST_F(LargeAndOldFileTest, sizeOfAllIsTheSumOverEachGroup) {
  int i = 0;
  for (const char* name : {"a.zip", "b.png", "c.mov", "d.mp3", "e", "f.zip"}) {
    ++i;
    add(record(volume.file(name), std::int64_t{100} * i * kMiB,
               {Date::now().secondsSince1970 - i * i * 20 * kDay}));
  }
  const auto sum = [this](Kind first, Kind last) {
    std::int64_t total = 0;
    for (Integer kind = rawValue(first); kind <= rawValue(last); ++kind) total += row(Kind(kind)).size;
    return total;
  };
  EXPECT_EQ(all().size, 2100 * kMiB);
  EXPECT_EQ(sum(Kind::Archives, Kind::Other), all().size);
  EXPECT_EQ(sum(Kind::OneYear, Kind::LastWeek), all().size);
  EXPECT_EQ(sum(Kind::Huge, Kind::Small), all().size);
}

TEST_F(LargeAndOldFileTest, sumOfSizesThatOverflowsIsFatal) {
  add(record(volume.path("a"), INT64_MAX));
  EXPECT_DEATH(add(record(volume.path("b"), 1)), "Arithmetic overflow");
}

TEST_F(LargeAndOldFileTest, missingRowsAreFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a scan needs its queues, which a fork would not have
  const std::string text = "Unexpectedly found nil while unwrapping an Optional value";
  for (const Integer rows : {11, 0}) {
    feature = makeLargeAndOldFeature(rows);
    EXPECT_DEATH(add(record(volume.path("a"), 1)), text);
    EXPECT_DEATH(LargeAndOldFileService::sortCategory(all()), text);
    EXPECT_DEATH(run(), text);
  }
  all().childrenCateogry.reset();
  EXPECT_DEATH(add(record(volume.path("a"), 1)), text);
  EXPECT_DEATH(run(), text);
  feature->categoryInfo.clear();
  EXPECT_DEATH(run(), text);
}

// The records

TEST_F(LargeAndOldFileTest, recordIsMadeOfTheFilesOwnValues) {
  const std::string path = big("Movies/a film.mov", 120_MiB);
  volume.setModified("Users/alice/Movies/a film.mov", 1'000'000'000);
  big("b.zip");
  run();
  ASSERT_EQ(all().childrens.size(), 2U);
  const FileInformation& file = all().childrens[0];
  EXPECT_EQ(file.state, NSControlStateValueOff);
  EXPECT_EQ(file.finderID, 0);
  EXPECT_EQ(file.parentFinderID, all().finderID);
  EXPECT_EQ(file.title, "a film.mov");
  EXPECT_EQ(file.icon, Image::iconOf(file.url));
  EXPECT_EQ(file.size, 120 * kMiB);
  EXPECT_EQ(file.date, Date{1'000'000'000});
  EXPECT_EQ(file.url, URL::fileURL(path, false));
  EXPECT_TRUE(file.canDelete);
  EXPECT_FALSE(file.removeCategory);
  EXPECT_EQ(file.fileKind, rawValue(FilesKind::File));
  EXPECT_EQ(file.levelInt, 0);
  EXPECT_TRUE(file.childrens.empty());
  EXPECT_EQ(file.parentCategoryInfo.get(), &all());
  EXPECT_EQ(file.hashValueString.str(), "0:1:125829120:" + file.url.absoluteString());
  EXPECT_EQ(kindsOf(file), (Kinds{Kind::Movies, Kind::OneYear, Kind::Average}));
  EXPECT_EQ(all().childrens[1].finderID, 1);
}

TEST_F(LargeAndOldFileTest, scanAgainStartsClean) {
  const std::string path = big("a.zip");
  run();
  ASSERT_EQ(::unlink(path.c_str()), 0);
  big("b.mov", 600_MiB);
  scan.doneCount = 0;
  scan.percents.clear();
  run();
  EXPECT_EQ(names(), Names{"b.mov"});
  EXPECT_EQ(all().size, 600 * kMiB);
  EXPECT_EQ(scan.treeSize, 600 * kMiB);
  EXPECT_EQ(row(Kind::Archives).size, 0);
  EXPECT_TRUE(row(Kind::Archives).childrens.empty());
  EXPECT_EQ(names(row(Kind::Movies)), Names{"b.mov"});
}

// The callbacks

TEST_F(LargeAndOldFileTest, doneComesOnceOnTheMainQueueAfterTheStatusReadsEnd) {
  big("a.zip");
  std::optional<ScanState> atDone;
  scan.onDone = [&] { atDone = SuperScanService::scanStatus.get(kFeature); };
  start();
  EXPECT_EQ(SuperScanService::scanStatus.get(kFeature), ScanState::start);
  ASSERT_TRUE(scan.waitUntilDone());
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_TRUE(scan.donePlaces.at(0).onMain);
  EXPECT_EQ(atDone, ScanState::end);
  EXPECT_EQ(scan.treeSize, 60 * kMiB);
  EXPECT_TRUE(scan.singles.empty());
}

TEST_F(LargeAndOldFileTest, barHasThreeStepsAndEndsAtOne) {
  useToolThatPrints("");
  start();
  const auto bar = SuperScanService::percentService.get();
  ASSERT_NE(bar, nullptr);
  EXPECT_EQ(bar->totalStep, 3);
  EXPECT_EQ(bar->increaseValue, 1.0F);
  ASSERT_TRUE(scan.waitUntilDone());
  EXPECT_EQ(bar->currentStep, 2);
  EXPECT_EQ(std::ranges::count(scan.percents, 1.0F), 1);
  for (const auto& place : scan.percentPlaces) EXPECT_TRUE(place.onMain);
}

TEST_F(LargeAndOldFileTest, barMovesWhileTheToolRuns) {
  const std::string go = volume.fifo("go");
  volume.script("tools/mdfind", "cat '" + go + "'");
  useTools(volume.path("tools"));
  start();
  SuperScanService::percentService.get()->progressStep();
  EXPECT_TRUE(runMainLoopUntil([this] { return !scan.percents.empty(); }));
  EXPECT_EQ(scan.percents, std::vector<float>{1.0F / 3.0F});
  std::ofstream(go) << '\n';
  ASSERT_TRUE(scan.waitUntilDone());
}

TEST_F(LargeAndOldFileTest, secondStartWhileTheFirstRunsIsLoggedAndCallsNothingBack) {
  SuperScanService::scanStatus.set(kFeature, ScanState::start);
  start();
  EXPECT_TRUE(hasLogged("LargeAndOldScanService Scanning"));
  EXPECT_FALSE(hasLogged("LargeAndOldScanService Start"));
  EXPECT_EQ(SuperScanService::percentService.get(), nullptr);
  drainMainQueue();
  EXPECT_EQ(scan.doneCount, 0);
  EXPECT_TRUE(scan.percents.empty());
}

// After a clean

TEST_F(LargeAndOldFileTest, cleanedRecordsLeaveAllTheirRows) {
  std::vector<Ref<FileInformation>> files;
  for (const char* name : {"a.zip", "b.mov", "c.mp3", "d.zip", "e"}) {
    files.push_back(record(volume.file(name), 100 * kMiB));
    add(files.back());
  }
  const auto set = [&](std::size_t i, Integer state, DeleteStatus status) {
    files[i]->state = state;
    files[i]->deleteStatus = rawValue(status);
  };
  set(0, NSControlStateValueOn, DeleteStatus::DeleteSuccess);
  set(1, NSControlStateValueOn, DeleteStatus::DeleteError);
  set(2, NSControlStateValueMixed, DeleteStatus::DeleteSuccess);
  set(3, NSControlStateValueOn, DeleteStatus::DeleteSuccess);

  const auto [size, removed, paths] = LargeAndOldFileService::sortCategory(all());

  EXPECT_EQ(size, 200 * kMiB);
  EXPECT_EQ(removed, (FileRecords{files[0], files[3]}));
  EXPECT_EQ(paths, volume.path("a.zip") + "," + volume.path("d.zip") + ",");
  EXPECT_EQ(all().childrens.refs(), (FileRecords{files[1], files[2], files[4]}));
  EXPECT_EQ(all().size, 300 * kMiB);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(all().childrens[i].finderID, static_cast<Integer>(i));
    EXPECT_EQ(all().childrens[i].state, NSControlStateValueOff);
  }
  EXPECT_TRUE(row(Kind::Archives).childrens.empty());
  EXPECT_EQ(row(Kind::Archives).size, 0);
  EXPECT_EQ(row(Kind::LastWeek).size, 300 * kMiB);
  EXPECT_EQ(row(Kind::Average).childrens.size(), 3U);
}

TEST_F(LargeAndOldFileTest, cleanOfEverythingLeavesAllRowsEmpty) {
  for (const char* name : {"a.zip", "b.mov", "c.mp3", "d.jpg", "e"}) {
    const auto file = record(volume.file(name), 600 * kMiB);
    file->state = NSControlStateValueOn;
    file->deleteStatus = rawValue(DeleteStatus::DeleteSuccess);
    add(file);
  }
  LargeAndOldFileService::sortCategory(all());
  EXPECT_TRUE(all().childrens.empty());
  EXPECT_EQ(all().size, 0);
  for (const CategoryInformation& child : *all().childrenCateogry) {
    EXPECT_TRUE(child.childrens.empty());
    EXPECT_EQ(child.size, 0);
  }
}

TEST_F(LargeAndOldFileTest, recordsThatStayAreSortedAsOfNow) {
  const double now = Date::now().secondsSince1970;
  const auto file = record(volume.file("a"), 1, {now - 40 * kDay});
  add(file, now - 40 * kDay);  // sorted by its age on the day it was changed
  EXPECT_EQ(kindsOf(*file), (Kinds{Kind::Other, Kind::LastWeek, Kind::Small}));
  LargeAndOldFileService::sortCategory(all());
  EXPECT_EQ(kindsOf(*file), (Kinds{Kind::Other, Kind::OneMonth, Kind::Small}));
  EXPECT_EQ(row(Kind::LastWeek).size, 0);
  EXPECT_EQ(std::any_cast<LargeAndOldFileService::Rows>(file->attachInformation).count(6), 1U);
}

TEST_F(LargeAndOldFileTest, yearMonthAndWeekAreSpansBeforeNow) {
  constexpr double kHour = 3'600;
  const std::vector<std::tuple<double, Kind, Kind>> spans = {
      {365 * kDay, Kind::OneYear, Kind::OneMonth},
      {30 * kDay, Kind::OneMonth, Kind::OneWeek},
      {7 * kDay, Kind::OneWeek, Kind::LastWeek},
  };
  const double now = Date::now().secondsSince1970;
  for (const auto& [span, older, younger] : spans) {
    for (const auto& [margin, kind] : {std::pair(kHour, older), std::pair(-kHour, younger)}) {
      const auto file = record(volume.path("a"), 1, {now - span - margin});
      add(file);
      LargeAndOldFileService::sortCategory(all());
      EXPECT_EQ(kindsOf(*file), (Kinds{Kind::Other, kind, Kind::Small})) << span << ' ' << margin;
    }
  }
}

TEST_F(LargeAndOldFileTest, treeWithPayloadsIsFreedWithItsLastHandle) {
  struct Witness {
    std::shared_ptr<int> alive;
  };
  const auto counter = std::make_shared<int>();
  big("a.zip");
  run();
  feature->attachInfomation = Witness{counter};
  EXPECT_EQ(counter.use_count(), 2);
  feature = nullptr;
  // The walk's own thread may still be about to release its handle.
  EXPECT_TRUE(runMainLoopUntil([&] { return counter.use_count() == 1; }));
}

}  // namespace
}  // namespace sorrel::test
