// The effect of the ticks on a clean of each feature.
#include "Host/FeatureTable.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "Host/CleanProgress.hpp"
#include "Host/CleanSession.hpp"
#include "Host/CommandError.hpp"
#include "Host/StopSwitch.hpp"
#include "Tests/Selection/TicksKit.hpp"
#include "Tests/Support/CleanKit.hpp"

namespace sorrel::cli {
namespace {

using test::kDeleteSuccess;

const Cleaner& cleanerOf(Integer finderID) { return findFeature(finderID)->cleaner; }

TEST_F(TicksTest, aSelectionOfEveryCopyIsRefusedWithTheGroupsNamed) {
  add("Duplicates",
      {titled("one", {realFile("a"), realFile("b")}), titled("two", {realFile("c"), realFile("d")}),
       titled("three", {realFile("e"), realFile("f")}), titled("none")});
  const Cleaner& duplicates = cleanerOf(7);
  select({path("[abce]"), path("f"), "none"});
  try {
    refuseWholeGroups(duplicates, feature());
    FAIL() << "not refused";
  } catch (const CommandError& error) {
    EXPECT_EQ(error.status(), ExitStatus::WrongUse);
    EXPECT_STREQ(error.what(),
                 "nothing was removed, as every copy would have gone of 'one', 'three'; --even-last-copy "
                 "allows that.");
  }
  select({path("[ace]")});
  EXPECT_NO_THROW(refuseWholeGroups(duplicates, feature()));
  tickAll(feature());
  EXPECT_NO_THROW(refuseWholeGroups(cleanerOf(2), feature()));
}

TEST_F(TicksTest, cleanOfWhatChangedFailsAndCleansWithoutGroupsDoNotAsk) {
  add("Duplicates", {titled("one", {realFile("a"), realFile("b")})});
  select({path("a")});
  const timespec longAgo{};
  struct stat last {};
  ASSERT_EQ(::lstat(path("b").c_str(), &last), 0);
  try {
    refuseChangedGroups(cleanerOf(7), feature(), longAgo);
    FAIL() << "not refused";
  } catch (const CommandError& error) {
    EXPECT_EQ(error.status(), ExitStatus::Failed);
    EXPECT_NE(std::string(error.what()).find(path("a")), std::string::npos);
  }
  EXPECT_NO_THROW(refuseChangedGroups(cleanerOf(1), feature(), longAgo));
  EXPECT_NO_THROW(refuseChangedGroups(cleanerOf(7), feature(), last.st_ctim));
}

TEST_F(TicksTest, eachFeatureIsCleanedByItsEntry) {
  struct Row {
    Integer finderID;
    TreeShape shape;
    CleanServiceType type;
  };
  for (const Row& row : {Row{1, TreeShape::Categories, CleanServiceType::Common},
                         Row{2, TreeShape::Categories, CleanServiceType::Common},
                         Row{3, TreeShape::Flat, CleanServiceType::LargeAndOldFile},
                         Row{4, TreeShape::Categories, CleanServiceType::Common},
                         Row{5, TreeShape::Categories, CleanServiceType::Common},
                         Row{6, TreeShape::Categories, CleanServiceType::Common},
                         Row{7, TreeShape::Groups, CleanServiceType::Duplicate},
                         Row{8, TreeShape::Groups, CleanServiceType::Similar}}) {
    const Cleaner& found = cleanerOf(row.finderID);
    ASSERT_NE(found.start, nullptr) << row.finderID;
    EXPECT_EQ(found.shape, row.shape) << row.finderID;
    EXPECT_EQ(found.type, row.type) << row.finderID;
  }
  for (const Integer other : {9, 10, 11, 12}) EXPECT_EQ(cleanerOf(other).start, nullptr) << other;
  for (const Integer other : {0, 13}) EXPECT_EQ(findFeature(other), nullptr) << other;
}

TEST_F(TicksTest, whatIsSelectedIsWhatEachEntryRemoves) {
  const test::UnrepairedLargeFiles unrepaired;
  for (const Integer finderID : {2, 3, 7}) {
    feature().categoryInfo.clear();
    const Cleaner& row = cleanerOf(finderID);
    add("All", {titled("one", {realFile("a"), realFile("b")}), realFile("c"), realFile("d")});
    select({path("[ac]")});
    Names expected;
    for (const auto& leaf : leavesOf(tickedRecords(row.shape, feature()))) {
      expected.push_back(leaf->url.path().substr(path("").size()));
    }
    const auto before = test::snapshotOf(stage_.volume.path());
    StopSwitch stop;
    CleanProgress progress(false, {});
    FileRecords handed;
    const auto result = runClean(row, stage_.feature, stop, progress,
                                 [&handed](const FileRecords& records) { handed = records; });
    ASSERT_TRUE(result);
    EXPECT_EQ(test::goneBetween(before, test::snapshotOf(stage_.volume.path())), expected) << finderID;
    EXPECT_FALSE(expected.empty()) << finderID;
    Names told;
    for (const auto& leaf : leavesOf(handed)) {
      EXPECT_EQ(leaf->deleteStatus, kDeleteSuccess);
      told.push_back(leaf->title);
    }
    EXPECT_EQ(told, expected) << finderID;
  }
}

TEST_F(TicksTest, aCleanThatWasStoppedBeforeItBeganRemovesNothing) {
  add("All", {realFile("a")});
  tickAll(feature());
  const auto before = test::snapshotOf(stage_.volume.path());
  StopSwitch stop;
  CleanProgress progress(false, {});
  stop.pull();
  EXPECT_FALSE(runClean(cleanerOf(2), stage_.feature, stop, progress, [](const FileRecords&) { FAIL(); }));
  EXPECT_EQ(test::snapshotOf(stage_.volume.path()), before);
}

}  // namespace
}  // namespace sorrel::cli
