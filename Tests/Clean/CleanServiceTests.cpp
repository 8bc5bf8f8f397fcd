#include "SorrelFramework/Clean/CleanService.hpp"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "SorrelFramework/Clean/TreeRepair.hpp"
#include "Tests/Clean/CleanServiceKit.hpp"

namespace sorrel::test {
namespace {

TEST_F(CleanServiceTest, emptyListGivesProgressAndOneFinalCallback) {
  EXPECT_EQ(clean({}), Names());
  EXPECT_EQ(finish_->percents, kFullProgress);
  ASSERT_EQ(finish_->finishes.size(), 1U);
  EXPECT_EQ(finish_->finishes[0].size, 0);
  EXPECT_TRUE(finish_->finishes[0].allCategorys.empty());
  EXPECT_TRUE(finish_->finishes[0].abnormalFiles.empty());
  EXPECT_EQ(finish_->finishes[0].status, kStatusNone);
  EXPECT_EQ(finish_->finishes[0].desc, "");
  EXPECT_EQ(stage_.helperNames, Names());
}

TEST_F(CleanServiceTest, nothingOnGivesProgressAndOneFinalCallback) {
  const auto all = category(kOff, {leaf("a", kOn), folder("g", kOff, {leaf("g/b", kOn)})});
  EXPECT_EQ(clean({all}), Names());
  EXPECT_EQ(finish_->percents, kFullProgress);
  EXPECT_EQ(finish_->finishes.at(0).size, 0);
}

TEST_F(CleanServiceTest, groupsWithNothingOnGiveProgressAndOneFinalCallback) {
  EXPECT_EQ(cleanGroups(category(kOn, {folder("g", kOff, {leaf("g/b", kOn)})})), Names());
  EXPECT_EQ(finish_->percents, kFullProgress);
  EXPECT_EQ(finish_->finishes.size(), 1U);
}

TEST_F(CleanServiceTest, largeAndOldWithNothingOnGivesProgressAndOneFinalCallback) {
  EXPECT_EQ(cleanLarge(category(kOn, {leaf("a", kOff)})), Names());
  EXPECT_EQ(finish_->percents, kFullProgress);
  EXPECT_EQ(finish_->finishes.size(), 1U);
}

TEST_F(CleanServiceTest, finalCallbackComesOnABackgroundThread) {
  clean({category(kOn, {leaf("a")})});
  EXPECT_NE(finish_->thread, std::this_thread::get_id());
}

TEST_F(CleanServiceTest, cleanKeepsTheTreeAndTheListenerAlive) {
  auto all = category(kOn, {leaf("a", kOn, 7)});
  CleanService::cleanCategorys({all}, CleanServiceType::Common, finish_);
  all = nullptr;
  stage_.feature = nullptr;
  ASSERT_TRUE(finish_->waitUntilFinished());
  EXPECT_EQ(finish_->finishes.at(0).size, 7);
  EXPECT_EQ(finish_->finishes.at(0).allCategorys.at(0)->featureInfo->finderID, 1);
}

// Selection of cleanCategorys

TEST_F(CleanServiceTest, categoryThatIsOnTakesRecordsThatAreOff) {
  const auto off = leaf("a", kOff);
  EXPECT_EQ(clean({category(kOn, {off, leaf("b", kMixed), leaf("c", kOn)})}), (Names{"a", "b", "c"}));
  EXPECT_EQ(off->deleteStatus, kDeleteSuccess);
}

TEST_F(CleanServiceTest, categoryThatIsOnDoesNotLookBelowItsRecords) {
  EXPECT_EQ(clean({category(kOn, {folder("d", kOff, {leaf("d/x", kOff), leaf("d/y", kOn)})})}),
            (Names{"d/x", "d/y"}));
}

TEST_F(CleanServiceTest, categoryThatIsOffIsSkipped) {
  const auto on = leaf("a", kOn);
  EXPECT_EQ(clean({category(kOff, {on}), category(kOn, {leaf("b")})}), Names{"b"});
  EXPECT_EQ(on->deleteStatus, kStatusNone);
}

TEST_F(CleanServiceTest, mixedCategoryTakesEachRecordByItsOwnState) {
  const auto mixed = folder("d", kMixed, {leaf("d/on", kOn), leaf("d/off", kOff), leaf("d/mixed", kMixed)});
  EXPECT_EQ(clean({category(kMixed, {leaf("on", kOn), leaf("off", kOff), mixed})}), (Names{"d/on", "on"}));
}

TEST_F(CleanServiceTest, mixedRecordsAreFollowedDown) {
  const auto low = folder("d/e", kMixed, {leaf("d/e/on", kOn), leaf("d/e/off", kOff)});
  const auto skipped = folder("d/f", kOff, {leaf("d/f/on", kOn)});
  const auto whole = folder("d/g", kOn, {leaf("d/g/off", kOff)});
  EXPECT_EQ(clean({category(kMixed, {folder("d", kMixed, {low, skipped, whole})})}),
            (Names{"d/e/on", "d/g/off"}));
}

TEST_F(CleanServiceTest, anyOtherStateCountsAsMixed) {
  const auto odd = folder("d", -7, {leaf("d/on", kOn), leaf("d/off", kOff)});
  EXPECT_EQ(clean({category(5, {leaf("a", kOn), leaf("b", kOff), odd})}), (Names{"a", "d/on"}));
}

// Selection of groups

TEST_F(CleanServiceTest, groupThatIsOnTakesAllItsChildrenAndStaysItself) {
  const auto group = folder("g", kOn, {leaf("g/a", kOff), leaf("g/b", kMixed), leaf("g/c", kOn)});
  EXPECT_EQ(cleanGroups(category(kOff, {group})), (Names{"g/a", "g/b", "g/c"}));
  EXPECT_EQ(group->deleteStatus, kStatusNone);
}

TEST_F(CleanServiceTest, groupThatIsOnWithoutChildrenIsNotDeleted) {
  EXPECT_EQ(cleanGroups(category(kOn, {leaf("g", kOn)})), Names());
}

TEST_F(CleanServiceTest, groupThatIsOffIsSkipped) {
  EXPECT_EQ(cleanGroups(category(kOn, {folder("g", kOff, {leaf("g/a", kOn)})})), Names());
}

TEST_F(CleanServiceTest, mixedGroupTakesEachChildByItsOwnState) {
  const auto mixed = folder("g/d", kMixed, {leaf("g/d/on", kOn), leaf("g/d/off", kOff)});
  const auto group = folder("g", kMixed, {leaf("g/on", kOn), leaf("g/off", kOff), mixed});
  EXPECT_EQ(cleanGroups(category(kOff, {group})), (Names{"g/d/on", "g/on"}));
}

// Selection of large and old files

TEST_F(CleanServiceTest, largeAndOldTakesOnlyRecordsThatAreOn) {
  const auto mixed = folder("d", kMixed, {leaf("d/on", kOn)});
  EXPECT_EQ(cleanLarge(category(kOff, {leaf("on", kOn), leaf("off", kOff), mixed})), Names{"on"});
  EXPECT_EQ(mixed->deleteStatus, kStatusNone);
}

// Types

TEST_F(CleanServiceTest, uninstallHandsItsFeatureToTheRepair) {
  Ref<FeatureInformation> seen;
  const auto before = registerTreeRepair(CleanServiceType::Uninstall,
                                         [&](const auto&, const Ref<FeatureInformation>& feature) {
                                           seen = feature;
                                           return TreeRepairResult();
                                         });
  CleanService::cleanCategorys({}, CleanServiceType::Uninstall, finish_, stage_.feature);
  ASSERT_TRUE(finish_->waitUntilFinished());
  registerTreeRepair(CleanServiceType::Uninstall, before);
  EXPECT_EQ(seen, stage_.feature);
}

TEST_F(CleanServiceTest, otherEntriesLeaveTheFeatureAbsent) {
  bool isAbsent = false;
  const auto repair = [&](const auto&, const Ref<FeatureInformation>& feature) {
    isAbsent = !feature;
    return TreeRepairResult();
  };
  const auto before = registerTreeRepair(CleanServiceType::Similar, repair);
  const auto all = category(kOn, {});
  CleanService::cleanDuplicateAndSimilarCategorys(*all, CleanServiceType::Similar, finish_);
  ASSERT_TRUE(finish_->waitUntilFinished());
  registerTreeRepair(CleanServiceType::Similar, before);
  EXPECT_TRUE(isAbsent);
  EXPECT_EQ(finish_->finishes.at(0).allCategorys, std::vector{all});
}

}  // namespace
}  // namespace sorrel::test
