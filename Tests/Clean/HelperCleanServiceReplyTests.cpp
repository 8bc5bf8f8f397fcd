#include "SorrelFramework/Clean/HelperCleanService.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "SorrelFramework/Clean/CleanService.hpp"
#include "Tests/Clean/HelperCleanServiceKit.hpp"

namespace sorrel::test {
namespace {

using HelperCleanServiceReplyTest = HelperCleanServiceTest;

constexpr auto kSuccess = static_cast<std::int64_t>(HelperEventErrorID::Success);
constexpr auto kError = static_cast<std::int64_t>(HelperEventErrorID::DeleteError);

TEST_F(HelperCleanServiceReplyTest, recordThatFailedForTheUserCanSucceedInTheHelper) {
  stage_.volume.file("a", "x");
  stage_.failRemoving({path("a")}, EACCES);
  helperThat(deletingWhere([](auto&) { return true; }));
  const auto record = makeRecord({stage_.volume.url("a"), kOn, 6});
  const auto all = category(kOn, {record});
  const auto service = makeService({all});
  CleanService::updateDeleteStatus(*record, kDeleteing, *service);
  CleanService::deleteFiles(*service);
  ASSERT_TRUE(finish_->waitUntilFinished());
  EXPECT_EQ(record->deleteStatus, kDeleteSuccess);
  EXPECT_EQ(service->commonDeleteSize, 0);
  EXPECT_EQ(service->helperDeleteSize, 6);
  EXPECT_EQ(finish().size, 6);
  EXPECT_TRUE(all->childrens.empty());
  EXPECT_TRUE(finish().abnormalFiles.empty());
  EXPECT_EQ(finish_->percents, (std::vector<float>{0.25F, 0.5F, 0.75F}));
}

TEST_F(HelperCleanServiceReplyTest, errorForAPathReachesEachOfItsRecords) {
  helperThat(ScriptedHelper::deleting(HelperEventErrorID::DeleteError, "no way"));
  const auto first = leaf("a", 1, 1);
  const auto second = leaf("a", 1, 2);
  run({first, second});
  for (const auto& record : {first, second}) {
    EXPECT_EQ(record->deleteStatus, kDeleteError);
    EXPECT_EQ(record->deleteErrorDesc, "no way");
  }
  EXPECT_EQ(finish().size, 0);
  EXPECT_EQ(finish().desc, "no way,no way,");
  EXPECT_EQ(finish().status, kStatusNone);
}

TEST_F(HelperCleanServiceReplyTest, anyOtherStatusIsAnError) {
  for (const std::int64_t status : {1, 2, 3, 4, 5, -1, 77}) {
    const auto record = leaf("a");
    finish_ = std::make_shared<FinishRecord>();
    helperSending(HelperDictionary{{"", HelperDictionary{{"DeleteStatus", status}, {"0", 0}}}});
    run({record});
    EXPECT_EQ(record->deleteStatus, kDeleteError) << status;
  }
}

TEST_F(HelperCleanServiceReplyTest, textOfASuccessIsNotRead) {
  const auto record = leaf("a");
  helperSending(
      HelperDictionary{{"", HelperDictionary{{"DeleteStatus", kSuccess}, {"DeleteDesc", "odd"}, {"0", 0}}}});
  run({record});
  EXPECT_EQ(record->deleteStatus, kDeleteSuccess);
  EXPECT_EQ(record->deleteErrorDesc, "");
}

TEST_F(HelperCleanServiceReplyTest, errorWithoutATextClearsTheText) {
  const auto bare = leaf("a");
  const auto mistyped = leaf("b");
  bare->deleteErrorDesc = mistyped->deleteErrorDesc = "old";
  helperSending(
      HelperDictionary{{"a", HelperDictionary{{"DeleteStatus", kError}, {"0", 0}}},
                       {"b", HelperDictionary{{"DeleteStatus", kError}, {"DeleteDesc", 5}, {"0", 1}}}});
  run({bare, mistyped});
  EXPECT_EQ(bare->deleteErrorDesc, "");
  EXPECT_EQ(mistyped->deleteErrorDesc, "");
  EXPECT_EQ(finish().desc, ",,");
}

TEST_F(HelperCleanServiceReplyTest, keysOfTheReplyAreNotRead) {
  const auto record = leaf("a");
  helperSending(HelperDictionary{{"anything", HelperDictionary{{"DeleteStatus", kSuccess}, {"12", 0}}}});
  run({record});
  EXPECT_EQ(record->deleteStatus, kDeleteSuccess);
}

TEST_F(HelperCleanServiceReplyTest, entriesWithoutAUsableStatusAreSkipped) {
  const Records records = {leaf("a"), leaf("b"), leaf("c"), leaf("d"), leaf("e")};
  helperSending(HelperDictionary{{"a", HelperDictionary{{"0", 0}, {"DeleteDesc", "x"}}},
                                 {"b", HelperDictionary{{"0", 1}, {"DeleteStatus", "0"}}},
                                 {"c", HelperDictionary{{"0", 2}, {"DeleteStatus", HelperDictionary()}}},
                                 {"d", 3},
                                 {"d2", "3"},
                                 {"e", HelperDictionary{{"0", 4}, {"DeleteStatus", kSuccess}}}});
  run(records);
  for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(records[i]->deleteStatus, kDeleteing) << i;
  EXPECT_EQ(records[4]->deleteStatus, kDeleteSuccess);
  EXPECT_EQ(finish().desc, ",,,,");
}

TEST_F(HelperCleanServiceReplyTest, onlyNumbersUnderDecimalKeysNameRecords) {
  Records records;
  HelperDictionary entry = {{"DeleteStatus", kSuccess}, {"DeleteDesc", "0"}};
  const Names skipped = {
      "", " 1", "1 ", "x", "0x1", "1.0", "+-1", "+", "-", "--1", "++1", "1e3", "9223372036854775808"};
  const Names taken = {"0", "7", "-3", "+4", "007", "9223372036854775807"};
  for (const Names* keys : {&skipped, &taken}) {
    for (const std::string& key : *keys) {
      entry[key] = static_cast<std::int64_t>(records.size());
      records.push_back(leaf("f" + std::to_string(records.size())));
    }
  }
  entry["1"] = "19";
  entry["2"] = HelperDictionary();
  records.push_back(leaf("last"));
  helperSending(HelperDictionary{{"", entry}});
  run(records);
  for (std::size_t i = 0; i < records.size(); ++i) {
    const bool isTaken = i >= skipped.size() && i < skipped.size() + taken.size();
    EXPECT_EQ(records[i]->deleteStatus, isTaken ? kDeleteSuccess : kDeleteing) << i;
  }
}

TEST_F(HelperCleanServiceReplyTest, numbersWithoutARecordAreIgnored) {
  const auto record = leaf("a", 4);
  HelperDictionary entry = {{"0", 0}, {"1", -1}, {"2", 1}, {"3", std::numeric_limits<std::int64_t>::max()}};
  for (const std::int64_t status : {kSuccess, kError}) {
    entry["DeleteStatus"] = status;
    finish_ = std::make_shared<FinishRecord>();
    helperSending(HelperDictionary{{"", entry}});
    run({record});
    EXPECT_EQ(service_->helperDeleteSize, status == kSuccess ? 4 : 0);
  }
}

TEST_F(HelperCleanServiceReplyTest, numberThatComesTwiceCountsTwice) {
  helperSending(HelperDictionary{{"", HelperDictionary{{"DeleteStatus", kSuccess}, {"0", 0}, {"1", 0}}}});
  run({leaf("a", 4)});
  EXPECT_EQ(finish().size, 8);
}

TEST_F(HelperCleanServiceReplyTest, missingDictionaryLeavesAllRecordsAsTheyWere) {
  helperSending(std::nullopt);
  const auto foreign = leaf("a");
  const auto abnormal = leafWith(kOn, kDeleteError, 1, "own text");
  service_ = serviceFor({foreign});
  service_->cleanCategorys[0]->childrens.push_back(abnormal);
  service_->commonDeleteAbnormal.insert(abnormal);
  service_->deleteHelperFile();
  ASSERT_TRUE(finish_->waitUntilFinished());
  EXPECT_EQ(foreign->deleteStatus, kDeleteing);
  EXPECT_EQ(abnormal->deleteStatus, kDeleteError);
  EXPECT_EQ(finish().abnormalFiles, (Records{foreign, abnormal}));
  EXPECT_EQ(finish().desc, ",own text,");
  EXPECT_EQ(finish().size, 0);
}

TEST_F(HelperCleanServiceReplyTest, pathThatTheReplyOmitsKeepsItsStatus) {
  const auto omitted = leaf("a");
  const auto named = leaf("b");
  helperSending(HelperDictionary{{path("b"), HelperDictionary{{"DeleteStatus", kSuccess}, {"0", 1}}}});
  run({omitted, named});
  EXPECT_EQ(omitted->deleteStatus, kDeleteing);
  EXPECT_EQ(finish().abnormalFiles, Records{omitted});
  EXPECT_EQ(finish().desc, ",");
  EXPECT_EQ(finish().size, 1);
}

TEST_F(HelperCleanServiceReplyTest, leavesOfAFolderStayAndAreToldWithoutAHelper) {
  CleanStage::refuseHelper();
  const Records leaves = {leaf("d/a"), leaf("d/e/b")};
  const auto below = makeRecord({stage_.volume.url("d/e/"), kOn, 0, true, {leaves[1]}});
  const auto parent = makeRecord({stage_.volume.url("d/"), kOn, 0, false, {leaves[0], below}});
  run({parent});
  for (const auto& record : leaves) EXPECT_EQ(record->deleteStatus, kDeleteing);
  EXPECT_EQ(finish().status, kDeleteError);
  EXPECT_EQ(finish().abnormalFiles, leaves);
  EXPECT_EQ(finish().desc, ",,");
  EXPECT_EQ(finish().allCategorys.at(0)->childrens.refs(), Records{parent});
  EXPECT_EQ(parent->childrens.refs(), (Records{leaves[0], below}));
  EXPECT_EQ(below->childrens.refs(), Records{leaves[1]});
}

TEST_F(HelperCleanServiceReplyTest, leavesOfAFolderThatTheReplyOmitsStayAndAreTold) {
  const auto omitted = leaf("d/a", 4);
  const auto named = leaf("d/b");
  const auto parent = makeRecord({stage_.volume.url("d/"), kOn, 5, false, {omitted, named}});
  helperSending(HelperDictionary{{path("d/b"), HelperDictionary{{"DeleteStatus", kSuccess}, {"0", 1}}}});
  run({parent});
  EXPECT_EQ(omitted->deleteStatus, kDeleteing);
  EXPECT_EQ(named->deleteStatus, kDeleteSuccess);
  EXPECT_EQ(finish().status, kStatusNone);
  EXPECT_EQ(finish().abnormalFiles, Records{omitted});
  EXPECT_EQ(finish().desc, ",");
  EXPECT_EQ(finish().allCategorys.at(0)->childrens.refs(), Records{parent});
  EXPECT_EQ(parent->childrens.refs(), Records{omitted});
}

TEST_F(HelperCleanServiceReplyTest, leafThatHasAStatusKeepsItWhenItsFolderIsForTheHelper) {
  CleanStage::refuseHelper();
  const auto deleted = leafWith(kOn, kDeleteSuccess);
  const auto failed = leafWith(kOn, kDeleteError, 1, "own text");
  run({makeRecord({stage_.volume.url("d/"), kOn, 0, false, {deleted, failed}})});
  EXPECT_EQ(deleted->deleteStatus, kDeleteSuccess);
  EXPECT_EQ(failed->deleteStatus, kDeleteError);
  EXPECT_EQ(finish().desc, "own text,");
}

TEST_F(HelperCleanServiceReplyTest, recordsOfTheOtherHalfAreNotMarked) {
  CleanStage::refuseHelper();
  const auto other = leafWith(kOff, kStatusNone);
  service_ = serviceFor({leaf("a")});
  service_->cleanCategorys[0]->childrens.push_back(folder(kMixed, {other}));
  service_->deleteHelperFile();
  EXPECT_EQ(other->deleteStatus, kStatusNone);
  EXPECT_EQ(finish().desc, ",");
}

TEST_F(HelperCleanServiceReplyTest, withoutAReplyTheFinalCallbackNeverComes) {
  const auto helper = helperThat({});
  const auto service = serviceFor({leaf("a")});
  service->deleteHelperFile();
  ASSERT_TRUE(helper->waitForEvents(1));
  EXPECT_EQ(service->cleanFinshCount, 1);
  EXPECT_EQ(finish_->finishCount(), 0U);
  EXPECT_TRUE(finish_->percents.empty());
}

/// A helper that keeps the reply until the test sends it.
class WaitingHelper : public HelperProtocol {
 public:
  void getHelperVersion(VersionReply) override {}
  void handleEvent(std::int32_t, const HelperDictionary&, EventReply reply) override {
    pending = std::move(reply);
  }
  void uninstall(UninstallReply) override {}

  EventReply pending;
};

TEST_F(HelperCleanServiceReplyTest, replyKeepsTheServiceAlive) {
  const auto helper = std::make_shared<WaitingHelper>();
  stage_.setHelper(helper);
  auto service = serviceFor({leaf("a", 4)});
  service->deleteHelperFile();
  const std::weak_ptr<HelperCleanService> watch = service;
  service = nullptr;
  EXPECT_FALSE(watch.expired());
  helper->pending(true, 0, HelperDictionary{{"", HelperDictionary{{"DeleteStatus", kSuccess}, {"0", 0}}}});
  EXPECT_EQ(finish().size, 4);
  helper->pending = nullptr;
  EXPECT_TRUE(watch.expired());
}

TEST_F(HelperCleanServiceReplyTest, secondReplyGivesNoSecondFinalCallback) {
  const auto helper = std::make_shared<WaitingHelper>();
  stage_.setHelper(helper);
  const auto service = serviceFor({leaf("a")});
  service->deleteHelperFile();
  helper->pending(true, 0, std::nullopt);
  helper->pending(true, 0, std::nullopt);
  EXPECT_EQ(finish_->finishes.size(), 1U);
  helper->pending = nullptr;
}

}  // namespace
}  // namespace sorrel::test
