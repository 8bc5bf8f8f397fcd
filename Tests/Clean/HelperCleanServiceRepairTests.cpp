#include "SorrelFramework/Clean/HelperCleanService.hpp"

#include <gtest/gtest.h>

#include <limits>

#include "Tests/Clean/HelperCleanServiceKit.hpp"

namespace sorrel::test {
namespace {

// How a clean of type Common repairs the tree.
using HelperCleanServiceRepairTest = HelperCleanServiceTest;

TEST_F(HelperCleanServiceRepairTest, repairTakesDeletedRecordsOut) {
  const auto kept = leafWith(kOff, kStatusNone, 5);
  const auto all = category(kMixed, {leafWith(kOn, kDeleteSuccess, 3), kept, leafWith(kOn, kDeleteSuccess)});
  const auto service = makeService({all});
  const auto [failed, text] = service->sortCategory(*service);
  EXPECT_TRUE(failed.empty());
  EXPECT_EQ(text, "");
  EXPECT_EQ(all->childrens.refs(), Records{kept});
  EXPECT_EQ(all->size, 5);
  EXPECT_EQ(all->state, kOff);
}

TEST_F(HelperCleanServiceRepairTest, repairKeepsADeletedRecordThatIsNotOn) {
  const auto off = leafWith(kOff, kDeleteSuccess, 3);
  const auto all = category(kOn, {off});
  const auto service = makeService({all});
  EXPECT_TRUE(service->sortCategory(*service).first.empty());
  EXPECT_EQ(all->childrens.refs(), Records{off});
  EXPECT_EQ(all->size, 3);
}

TEST_F(HelperCleanServiceRepairTest, repairTakesARecordThatIsOnAndWasNotSelectedBelow) {
  const auto all =
      category(kMixed, {folder(kOn, {leafWith(kOn, kStatusNone), leafWith(kOn, kDeleteSuccess)})});
  const auto service = makeService({all});
  EXPECT_TRUE(service->sortCategory(*service).first.empty());
  EXPECT_TRUE(all->childrens.empty());
}

TEST_F(HelperCleanServiceRepairTest, repairKeepsAFailedRecordAndClearsItsTick) {
  const auto failed = leafWith(kOn, kDeleteError, 7, "no");
  const auto all = category(kOn, {leafWith(kOn, kDeleteSuccess), failed});
  const auto service = makeService({all});
  const auto [records, text] = service->sortCategory(*service);
  EXPECT_EQ(records, Records{failed});
  EXPECT_EQ(text, "no,");
  EXPECT_EQ(all->childrens.refs(), Records{failed});
  EXPECT_EQ(failed->state, kOff);
  EXPECT_EQ(failed->deleteStatus, kDeleteError);
  EXPECT_EQ(all->state, kOff);
  EXPECT_EQ(all->size, 7);
}

TEST_F(HelperCleanServiceRepairTest, repairCountsALeafStillAtDeleteingAsFailed) {
  const auto waiting = leafWith(kOn, kDeleteing);
  const auto service = makeService({category(kOn, {waiting})});
  const auto [records, text] = service->sortCategory(*service);
  EXPECT_EQ(records, Records{waiting});
  EXPECT_EQ(text, ",");
}

TEST_F(HelperCleanServiceRepairTest, repairNamesEqualFailedLeavesOnceAndTheirTextsEach) {
  const auto first = leafWith(kOn, kDeleteError, 1, "a");
  const auto twin = makeRecord({first->url, kOn, 1, true, {}, first->finderID});
  twin->deleteStatus = kDeleteError;
  twin->deleteErrorDesc = "b";
  const auto service = makeService({category(kOn, {first, twin})});
  const auto [records, text] = service->sortCategory(*service);
  EXPECT_EQ(records, Records{first});
  EXPECT_EQ(text, "a,b,");
}

TEST_F(HelperCleanServiceRepairTest, repairNamesLeavesAndNotTheirFolders) {
  const auto a = leafWith(kOff, kDeleteError, 1, "a");
  const auto b = leafWith(kOn, kDeleteError, 1, "b");
  const auto parent = folder(kOn, {folder(kOn, {a}), leafWith(kOn, kDeleteSuccess), b});
  parent->deleteStatus = kDeleteError;
  const auto service = makeService({category(kOn, {parent})});
  const auto [records, text] = service->sortCategory(*service);
  EXPECT_EQ(records, (Records{a, b}));
  EXPECT_EQ(text, "a,b,");
}

TEST_F(HelperCleanServiceRepairTest, repairCleansARecordThatStaysAndItsMixedChildren) {
  const auto off = leafWith(kOff, kStatusNone, 2);
  const auto failed = leafWith(kOn, kDeleteError, 4);
  const auto low = folder(kMixed, {leafWith(kOn, kDeleteSuccess, 8), off}, 100);
  const auto offDeleted = leafWith(kOff, kDeleteSuccess, 16);
  const auto top = folder(kMixed, {leafWith(kOn, kDeleteSuccess, 32), low, failed, offDeleted}, 100);
  const auto all = category(kMixed, {top});
  const auto service = makeService({all});
  service->sortCategory(*service);
  EXPECT_EQ(top->childrens.refs(), (Records{low, failed, offDeleted}));
  EXPECT_EQ(low->childrens.refs(), Records{off});
  EXPECT_EQ(low->size, 2);
  EXPECT_EQ(top->size, 22);
  EXPECT_EQ(all->size, 22);
  for (const auto& record : {off, failed, low, offDeleted, top}) EXPECT_EQ(record->state, kOff);
}

TEST_F(HelperCleanServiceRepairTest, repairLooksBelowRecordsThatAreOffWhenItNumbersThem) {
  const auto kept = leafWith(kOff, kStatusNone, 2);
  const auto off = folder(kOff, {leafWith(kOn, kDeleteSuccess, 8), kept});
  const auto all = category(kMixed, {folder(kMixed, {off})});
  const auto service = makeService({all});
  service->sortCategory(*service);
  EXPECT_EQ(off->childrens.refs(), Records{kept});
  EXPECT_EQ(all->size, 2);
}

TEST_F(HelperCleanServiceRepairTest, repairTakesAnEmptiedMixedFolderForALeafNoMore) {
  const auto emptied = folder(kMixed, {leafWith(kOn, kDeleteSuccess, 8)}, 8);
  const auto all = category(kMixed, {emptied});
  const auto service = makeService({all});
  service->sortCategory(*service);
  EXPECT_EQ(all->childrens.refs(), Records{emptied});
  EXPECT_TRUE(emptied->childrens.empty());
  EXPECT_EQ(emptied->size, 0);
}

TEST_F(HelperCleanServiceRepairTest, repairKeepsATickedFolderBelowARecordThatStaysAndEmptiesIt) {
  const auto off = leafWith(kOff, kDeleteSuccess, 4);
  const auto emptied = folder(kOn, {leafWith(kOn, kDeleteSuccess, 8), leafWith(kOn, kDeleteSuccess, 8)}, 16);
  const auto whole = folder(kOn, {leafWith(kOn, kDeleteSuccess, 8), off}, 12);
  for (const auto& record : {emptied, whole}) record->deleteStatus = kDeleteing;
  const auto top = folder(kMixed, {emptied, whole, leafWith(kOff, kStatusNone, 1)}, 29);
  const auto all = category(kMixed, {top});
  const auto service = makeService({all});
  EXPECT_TRUE(service->sortCategory(*service).first.empty());
  ASSERT_EQ(top->childrens.size(), 3U);
  EXPECT_TRUE(emptied->childrens.empty());
  EXPECT_EQ(emptied->size, 0);
  EXPECT_EQ(whole->childrens.refs(), Records{off});
  EXPECT_EQ(whole->size, 4);
  EXPECT_EQ(all->size, 5);
}

TEST_F(HelperCleanServiceRepairTest, repairNumbersWhatIsLeft) {
  const auto low = leafWith(kOff, kStatusNone);
  const auto parent = folder(kMixed, {leafWith(kOn, kDeleteSuccess), leafWith(kOff, kStatusNone), low});
  const auto first = category(kOn, {leafWith(kOn, kDeleteSuccess)});
  const auto second = category(kMixed, {leafWith(kOn, kDeleteSuccess), leafWith(kOff, kStatusNone), parent});
  const auto service = makeService({first, second});
  service->sortCategory(*service);
  EXPECT_EQ(parent->finderID, 1);
  EXPECT_EQ(parent->parentFinderID, 1);
  EXPECT_EQ(low->finderID, 1);
  EXPECT_EQ(low->parentFinderID, 1);
  EXPECT_EQ(second->childrens[0].finderID, 0);
  EXPECT_EQ(second->childrens[0].parentFinderID, 1);
  EXPECT_EQ(parent->childrens[0].finderID, 0);
}

TEST_F(HelperCleanServiceRepairTest, repairLeavesACategoryThatIsOffOutOfTheTallyButNumbersIt) {
  const auto failed = leafWith(kOn, kDeleteError, 4);
  const auto deleted = leafWith(kOn, kDeleteSuccess, 2);
  const auto off = category(kOff, {failed, deleted}, true);
  const auto service = makeService({off});
  const auto [records, text] = service->sortCategory(*service);
  EXPECT_TRUE(records.empty());
  EXPECT_EQ(text, "");
  EXPECT_EQ(off->childrens.refs(), (Records{failed, deleted}));
  EXPECT_EQ(off->size, 6);
  EXPECT_EQ(deleted->finderID, 1);
  EXPECT_EQ(deleted->state, kOff);
}

TEST_F(HelperCleanServiceRepairTest, repairRemovesEmptiedCategoriesThatAskForIt) {
  const auto gone = category(kOn, {leafWith(kOn, kDeleteSuccess)}, true);
  const auto stays = category(kMixed, {leafWith(kOff, kStatusNone, 3)}, true);
  const auto goneToo = category(kMixed, {leafWith(kOn, kDeleteSuccess)}, true);
  const auto emptyButOff = category(kOff, {}, true);
  const auto service = makeService({gone, stays, goneToo, emptyButOff});
  service->sortCategory(*service);
  EXPECT_EQ(service->cleanCategorys, (Categorys{stays, emptyButOff}));
  EXPECT_EQ(stays->finderID, 0);
  EXPECT_EQ(emptyButOff->finderID, 1);
  EXPECT_EQ(stays->childrens[0].parentFinderID, 0);
}

TEST_F(HelperCleanServiceRepairTest, repairKeepsAnEmptiedCategoryThatDoesNotAskForIt) {
  const auto emptied = category(kOn, {leafWith(kOn, kDeleteSuccess, 9)});
  emptied->size = 9;
  const auto service = makeService({emptied});
  service->sortCategory(*service);
  EXPECT_EQ(service->cleanCategorys, Categorys{emptied});
  EXPECT_EQ(emptied->size, 0);
  EXPECT_EQ(emptied->finderID, 77);
}

TEST_F(HelperCleanServiceRepairTest, firstCategoryDecidesOnTheNumbersOfAll) {
  const auto plain = category(kOn, {});
  const auto asking = category(kOn, {leafWith(kOff, kStatusNone)}, true);
  const auto service = makeService({plain, asking});
  service->sortCategory(*service);
  EXPECT_EQ(asking->finderID, 77);
  const auto other = makeService({asking, plain});
  other->sortCategory(*other);
  EXPECT_EQ(asking->finderID, 0);
  EXPECT_EQ(plain->finderID, 1);
}

TEST_F(HelperCleanServiceRepairTest, repairRefreshesHashValueStrings) {
  const auto kept = leafWith(kOff, kStatusNone, 5);
  const auto service = makeService({category(kMixed, {leafWith(kOn, kDeleteSuccess), kept})});
  service->sortCategory(*service);
  EXPECT_EQ(kept->hashValueString, "0:0:5:" + kept->url.absoluteString());
}

TEST_F(HelperCleanServiceRepairTest, emptiedCategoryThatWasGivenTwiceIsAFatalStop) {
  const auto all = category(kOn, {leafWith(kOn, kDeleteSuccess), leafWith(kOn, kDeleteSuccess)});
  const auto service = makeService({all, all});
  EXPECT_DEATH(service->sortCategory(*service), "Index out of range");
}

TEST_F(HelperCleanServiceRepairTest, repairTrapsSizesThatOverflow) {
  const auto service =
      makeService({category(kMixed, {leafWith(kOff, kStatusNone, std::numeric_limits<std::int64_t>::max()),
                                     leafWith(kOff, kStatusNone)})});
  EXPECT_DEATH(service->sortCategory(*service), "overflow");
}

}  // namespace
}  // namespace sorrel::test
