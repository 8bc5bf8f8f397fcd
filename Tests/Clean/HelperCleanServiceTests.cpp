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
#include "SorrelFramework/Clean/TreeRepair.hpp"
#include "SorrelFramework/Platform/Host.hpp"
#include "Tests/Support/CleanKit.hpp"

namespace sorrel {
namespace {

using test::CleanStage;
using test::FinishRecord;
using test::kDeleteError;
using test::kDeleteing;
using test::kDeleteSuccess;
using test::kMixed;
using test::kOff;
using test::kOn;
using test::kStatusNone;
using test::makeCategory;
using test::makeRecord;
using test::ScriptedHelper;
using Names = std::vector<std::string>;

constexpr auto kSuccess = static_cast<std::int64_t>(HelperEventErrorID::Success);
constexpr auto kError = static_cast<std::int64_t>(HelperEventErrorID::DeleteError);

/// Records of files that need not exist: nothing here is removed by this process.
class HelperCleanServiceTest : public test::CleanFixture {
 protected:
  Ref<FileInformation> leaf(const std::string& name, std::int64_t size = 1, Integer finderID = 0) {
    return makeRecord({stage_.volume.url(name), kOn, size, false, {}, finderID});
  }
  Ref<FileInformation> leafWith(Integer state, Integer status, std::int64_t size = 1,
                                const std::string& desc = "") {
    const auto record =
        makeRecord({stage_.volume.url("f" + std::to_string(made_)), state, size, true, {}, 1000 + made_});
    ++made_;
    record->deleteStatus = status;
    record->deleteErrorDesc = desc;
    return record;
  }
  Ref<FileInformation> folder(Integer state, const Records& childrens, std::int64_t size = 0) {
    const auto record = makeRecord(
        {stage_.volume.url("d" + std::to_string(made_) + "/"), state, size, true, childrens, 1000 + made_});
    ++made_;
    return record;
  }
  /// A service whose helper half holds these records, marked as the selection does; the other half is done.
  std::shared_ptr<HelperCleanService> serviceFor(const Records& records,
                                                 CleanServiceType type = CleanServiceType::Common) {
    auto service = makeService({category(kOn, records)}, type);
    for (const auto& record : records) CleanService::updateDeleteStatus(*record, kDeleteing, *service);
    service->commonFinish();
    return service;
  }
  std::shared_ptr<ScriptedHelper> helperThat(ScriptedHelper::Answer answer) {
    auto helper = std::make_shared<ScriptedHelper>(std::move(answer));
    stage_.setHelper(helper);
    return helper;
  }
  /// A helper that sends this dictionary, whatever it is asked.
  std::shared_ptr<ScriptedHelper> helperSending(std::optional<HelperDictionary> reply) {
    return helperThat([reply = std::move(reply)](auto&) {
      return std::optional(ScriptedHelper::Reply{false, 99, reply});
    });
  }
  /// The helper's half of a clean of these records.
  void run(const Records& records, CleanServiceType type = CleanServiceType::Common) {
    service_ = serviceFor(records, type);
    service_->deleteHelperFile();
    ASSERT_TRUE(finish_->waitUntilFinished());
  }
  const FinishRecord::Finish& finish() { return finish_->finishes.at(0); }

  std::shared_ptr<HelperCleanService> service_;
  Integer made_ = 0;
};

/// Puts another repair in the place of a type's for the length of a scope.
class ScopedRepair {
 public:
  ScopedRepair(CleanServiceType type, TreeRepairFunc repair)
      : type_(type), before_(registerTreeRepair(type, std::move(repair))) {}
  ~ScopedRepair() { registerTreeRepair(type_, std::move(before_)); }
  ScopedRepair(const ScopedRepair&) = delete;
  ScopedRepair& operator=(const ScopedRepair&) = delete;

 private:
  CleanServiceType type_;
  TreeRepairFunc before_;
};

TEST_F(HelperCleanServiceTest, startsWithItsArgumentsAndNothingElse) {
  const auto all = category(kOn, {});
  const auto service = makeService({all}, CleanServiceType::Similar);
  EXPECT_EQ(service->finishService, finish_);
  EXPECT_EQ(service->cleanCategorys, Categorys{all});
  EXPECT_EQ(service->cleanType, CleanServiceType::Similar);
  EXPECT_EQ(service->cleanFinshCount, 0);
  EXPECT_TRUE(service->commonDelete.empty());
  EXPECT_TRUE(service->commonDeleteAbnormal.empty());
  EXPECT_EQ(service->commonDeleteFinishCount, 0);
  EXPECT_EQ(service->commonDeleteAbnormalCount, 0);
  EXPECT_TRUE(service->helperDelete.empty());
  EXPECT_EQ(service->helperDeleteFinishCount, 0);
  EXPECT_EQ(service->privilegeHelper, nullptr);
  EXPECT_EQ(service->errorStatus, kStatusNone);
  EXPECT_EQ(service->errorDesc, "");
  EXPECT_EQ(service->commonDeleteSize, 0);
  EXPECT_EQ(service->helperDeleteSize, 0);
  EXPECT_FALSE(service->featureInformation);
}

// Getting the helper

TEST_F(HelperCleanServiceTest, helperIsNotAskedForWhenNothingIsLeft) {
  const auto helper = helperSending(std::nullopt);
  const auto service = makeService();
  service->commonDelete.insert(leaf("a"));
  service->commonDeleteSize = 8;
  service->commonFinish();
  service->deleteHelperFile();
  EXPECT_EQ(stage_.helperNames, Names());
  EXPECT_TRUE(helper->events().empty());
  EXPECT_EQ(finish().size, 8);
  EXPECT_EQ(service->cleanFinshCount, 2);
}

TEST_F(HelperCleanServiceTest, helperIsNamedAfterTheMainBundle) {
  const auto helper = helperSending(std::nullopt);
  run({leaf("a")});
  EXPECT_EQ(stage_.helperNames, Names{"org.example.testHelper"});
  EXPECT_EQ(service_->privilegeHelper, helper);
}

TEST_F(HelperCleanServiceTest, helperThatIsThereIsNotAskedForAgain) {
  const auto helper = std::make_shared<ScriptedHelper>(ScriptedHelper::deleting(HelperEventErrorID::Success));
  const auto service = serviceFor({leaf("a")});
  service->privilegeHelper = helper;
  service->deleteHelperFile();
  ASSERT_TRUE(finish_->waitUntilFinished());
  EXPECT_EQ(stage_.helperNames, Names());
  EXPECT_EQ(helper->events().size(), 1U);
}

TEST_F(HelperCleanServiceTest, messageOfTheInstallationReachesTheCallerOfAnotherType) {
  CleanStage::refuseHelper();
  const auto record = leaf("a");
  run({record}, CleanServiceType::Duplicate);
  EXPECT_EQ(finish().status, kDeleteError);
  EXPECT_EQ(finish().desc, "Get admain authorization fail!");
  EXPECT_EQ(service_->cleanFinshCount, 2);
  EXPECT_EQ(finish_->finishes.size(), 1U);
}

TEST_F(HelperCleanServiceTest, messageOfTheInstallationIsOverwrittenInACommonClean) {
  CleanStage::refuseHelper();
  const auto foreign = leaf("a");
  const auto abnormal = leafWith(kOn, kDeleteError, 1, "own text");
  service_ = makeService({category(kOn, {foreign, abnormal})});
  CleanService::updateDeleteStatus(*foreign, kDeleteing, *service_);
  service_->commonDeleteAbnormal.insert(abnormal);
  service_->commonDeleteSize = 5;
  service_->commonFinish();
  service_->deleteHelperFile();
  EXPECT_EQ(finish().status, kDeleteError);
  EXPECT_EQ(finish().desc, ",own text,");
  EXPECT_EQ(finish().size, 5);
  EXPECT_EQ(finish().abnormalFiles, (Records{foreign, abnormal}));
  EXPECT_EQ(finish().allCategorys.at(0)->childrens.size(), 2U);
}

TEST_F(HelperCleanServiceTest, noHelperWithoutAMessageIsInstallFail) {
  class Nobody : public HelperCleanService {
   public:
    using HelperCleanService::HelperCleanService;

   protected:
    PrivilegeHelper::Tool askForHelper(const std::string&) override { return {}; }
  };
  const auto service = std::make_shared<Nobody>(finish_, CleanServiceType::Similar, Categorys());
  service->helperDelete.insert(leaf("a"));
  service->commonFinish();
  service->deleteHelperFile();
  EXPECT_EQ(finish().status, kDeleteError);
  EXPECT_EQ(finish().desc, "Install Fail!");
}

TEST_F(HelperCleanServiceTest, bundleWithoutIdentifierGetsNoHelper) {
  helperSending(std::nullopt);
  Host::install(Host::macVolume(stage_.volume.path(), "alice", {}));
  run({leaf("a")}, CleanServiceType::Similar);
  EXPECT_EQ(finish().status, kDeleteError);
  EXPECT_EQ(finish().desc, "Cann't Get Helper.Unkown reason.");
  EXPECT_EQ(stage_.helperNames, Names());
}

// The event

TEST_F(HelperCleanServiceTest, eventHoldsTheLeavesByPathAndNumber) {
  const auto helper = helperSending(std::nullopt);
  const auto parent =
      makeRecord({stage_.volume.url("d/"),
                  kOn,
                  0,
                  false,
                  {leaf("d/a"), makeRecord({stage_.volume.url("d/e/"), kOn, 0, true, {leaf("d/e/b")}})}});
  run({parent, leaf("a b\n\xFF")});
  ASSERT_EQ(helper->events().size(), 1U);
  EXPECT_EQ(helper->events()[0].id, 0);
  EXPECT_EQ(helper->events()[0].dictionary,
            (HelperDictionary{{path("d/a"), HelperDictionary{{"0", 0}}},
                              {path("d/e/b"), HelperDictionary{{"0", 1}}},
                              {path("a b\n\xFF"), HelperDictionary{{"0", 2}}}}));
}

TEST_F(HelperCleanServiceTest, recordsThatTheUserFailedToDeleteComeFirst) {
  const auto helper = helperSending(std::nullopt);
  service_ = serviceFor({leaf("b"), leaf("a")});
  service_->commonDeleteAbnormal.insert(leaf("z"));
  service_->commonDeleteAbnormal.insert(leaf("y"));
  service_->commonDelete.insert(leaf("done"));
  service_->deleteHelperFile();
  ASSERT_TRUE(finish_->waitUntilFinished());
  EXPECT_EQ(helper->events().at(0).dictionary, (HelperDictionary{{path("z"), HelperDictionary{{"0", 0}}},
                                                                 {path("y"), HelperDictionary{{"0", 1}}},
                                                                 {path("b"), HelperDictionary{{"0", 2}}},
                                                                 {path("a"), HelperDictionary{{"0", 3}}}}));
}

TEST_F(HelperCleanServiceTest, recordsOfOnePathTravelAsOneEntry) {
  const auto helper = helperThat(ScriptedHelper::deleting(HelperEventErrorID::Success));
  const auto first = leaf("a", 10, 1);
  const auto other = leaf("b", 1, 2);
  const auto second = leaf("a", 20, 3);
  run({first, other, second});
  EXPECT_EQ(helper->events().at(0).dictionary,
            (HelperDictionary{{path("a"), HelperDictionary{{"0", 0}, {"1", 2}}},
                              {path("b"), HelperDictionary{{"0", 1}}}}));
  EXPECT_EQ(first->deleteStatus, kDeleteSuccess);
  EXPECT_EQ(second->deleteStatus, kDeleteSuccess);
  EXPECT_EQ(service_->helperDeleteSize, 31);
  EXPECT_EQ(finish().size, 31);
}

TEST_F(HelperCleanServiceTest, recordOfARelativeOrOutsidePlaceIsNotSent) {
  const auto helper = helperThat(ScriptedHelper::deleting(HelperEventErrorID::Success));
  const auto outside = makeRecord({URL::fileURL("/usr/bin/env", false), kOn, 1, false});
  const auto inside = leaf("a");
  run({outside, inside, makeRecord({URL(), kOn, 1, false})});
  EXPECT_EQ(helper->events().at(0).dictionary, (HelperDictionary{{path("a"), HelperDictionary{{"0", 0}}}}));
  EXPECT_EQ(outside->deleteStatus, kDeleteError);
  EXPECT_EQ(outside->deleteErrorDesc,
            "“env” couldn’t be removed because you don’t have permission to access it.");
  EXPECT_EQ(inside->deleteStatus, kDeleteSuccess);
}

TEST_F(HelperCleanServiceTest, placesThatAreProtectedHereAreNotSent) {
  stage_.volume.file("Users/alice/.Trash/a", "x");
  stage_.volume.link("Homes", "Users");
  const auto helper = helperThat(ScriptedHelper::deleting(HelperEventErrorID::Success));
  const Records places = {leaf("Users/"), leaf("Users/alice/"), leaf("Users/alice/.Trash/"),
                          leaf("Homes/alice")};
  Records records = places;
  records.push_back(leaf("Users/alice/.Trash/a"));
  service_ = serviceFor(records);
  service_->commonDeleteAbnormal.insert(leaf("."));
  service_->deleteHelperFile();
  ASSERT_TRUE(finish_->waitUntilFinished());
  EXPECT_EQ(helper->events().at(0).dictionary,
            (HelperDictionary{{path("Users/alice/.Trash/a"), HelperDictionary{{"0", 0}}}}));
  for (const auto& record : places) EXPECT_EQ(record->deleteStatus, kDeleteError);
  EXPECT_EQ(places[1]->deleteErrorDesc,
            "“alice” couldn’t be removed because you don’t have permission to access it.");
}

// The reply

TEST_F(HelperCleanServiceTest, recordThatFailedForTheUserCanSucceedInTheHelper) {
  stage_.volume.file("a", "x");
  stage_.failRemoving({path("a")}, EACCES);
  helperThat(test::deletingWhere([](auto&) { return true; }));
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

TEST_F(HelperCleanServiceTest, errorForAPathReachesEachOfItsRecords) {
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

TEST_F(HelperCleanServiceTest, anyOtherStatusIsAnError) {
  for (const std::int64_t status : {1, 2, 3, 4, 5, -1, 77}) {
    const auto record = leaf("a");
    finish_ = std::make_shared<FinishRecord>();
    helperSending(HelperDictionary{{"", HelperDictionary{{"DeleteStatus", status}, {"0", 0}}}});
    run({record});
    EXPECT_EQ(record->deleteStatus, kDeleteError) << status;
  }
}

TEST_F(HelperCleanServiceTest, textOfASuccessIsNotRead) {
  const auto record = leaf("a");
  helperSending(
      HelperDictionary{{"", HelperDictionary{{"DeleteStatus", kSuccess}, {"DeleteDesc", "odd"}, {"0", 0}}}});
  run({record});
  EXPECT_EQ(record->deleteStatus, kDeleteSuccess);
  EXPECT_EQ(record->deleteErrorDesc, "");
}

TEST_F(HelperCleanServiceTest, errorWithoutATextClearsTheText) {
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

TEST_F(HelperCleanServiceTest, keysOfTheReplyAreNotRead) {
  const auto record = leaf("a");
  helperSending(HelperDictionary{{"anything", HelperDictionary{{"DeleteStatus", kSuccess}, {"12", 0}}}});
  run({record});
  EXPECT_EQ(record->deleteStatus, kDeleteSuccess);
}

TEST_F(HelperCleanServiceTest, entriesWithoutAUsableStatusAreSkipped) {
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

TEST_F(HelperCleanServiceTest, onlyNumbersUnderDecimalKeysNameRecords) {
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

TEST_F(HelperCleanServiceTest, numbersWithoutARecordAreIgnored) {
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

TEST_F(HelperCleanServiceTest, numberThatComesTwiceCountsTwice) {
  helperSending(HelperDictionary{{"", HelperDictionary{{"DeleteStatus", kSuccess}, {"0", 0}, {"1", 0}}}});
  run({leaf("a", 4)});
  EXPECT_EQ(finish().size, 8);
}

TEST_F(HelperCleanServiceTest, missingDictionaryLeavesAllRecordsAsTheyWere) {
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

TEST_F(HelperCleanServiceTest, pathThatTheReplyOmitsKeepsItsStatus) {
  const auto omitted = leaf("a");
  const auto named = leaf("b");
  helperSending(HelperDictionary{{path("b"), HelperDictionary{{"DeleteStatus", kSuccess}, {"0", 1}}}});
  run({omitted, named});
  EXPECT_EQ(omitted->deleteStatus, kDeleteing);
  EXPECT_EQ(finish().abnormalFiles, Records{omitted});
  EXPECT_EQ(finish().desc, ",");
  EXPECT_EQ(finish().size, 1);
}

TEST_F(HelperCleanServiceTest, leavesOfAFolderStayAndAreToldWithoutAHelper) {
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

TEST_F(HelperCleanServiceTest, leavesOfAFolderThatTheReplyOmitsStayAndAreTold) {
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

TEST_F(HelperCleanServiceTest, leafThatHasAStatusKeepsItWhenItsFolderIsForTheHelper) {
  CleanStage::refuseHelper();
  const auto deleted = leafWith(kOn, kDeleteSuccess);
  const auto failed = leafWith(kOn, kDeleteError, 1, "own text");
  run({makeRecord({stage_.volume.url("d/"), kOn, 0, false, {deleted, failed}})});
  EXPECT_EQ(deleted->deleteStatus, kDeleteSuccess);
  EXPECT_EQ(failed->deleteStatus, kDeleteError);
  EXPECT_EQ(finish().desc, "own text,");
}

TEST_F(HelperCleanServiceTest, recordsOfTheOtherHalfAreNotMarked) {
  CleanStage::refuseHelper();
  const auto other = leafWith(kOff, kStatusNone);
  service_ = serviceFor({leaf("a")});
  service_->cleanCategorys[0]->childrens.push_back(folder(kMixed, {other}));
  service_->deleteHelperFile();
  EXPECT_EQ(other->deleteStatus, kStatusNone);
  EXPECT_EQ(finish().desc, ",");
}

TEST_F(HelperCleanServiceTest, withoutAReplyTheFinalCallbackNeverComes) {
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

TEST_F(HelperCleanServiceTest, replyKeepsTheServiceAlive) {
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

TEST_F(HelperCleanServiceTest, secondReplyGivesNoSecondFinalCallback) {
  const auto helper = std::make_shared<WaitingHelper>();
  stage_.setHelper(helper);
  const auto service = serviceFor({leaf("a")});
  service->deleteHelperFile();
  helper->pending(true, 0, std::nullopt);
  helper->pending(true, 0, std::nullopt);
  EXPECT_EQ(finish_->finishes.size(), 1U);
  helper->pending = nullptr;
}

// The end

TEST_F(HelperCleanServiceTest, endComesWithTheSecondHalfOnly) {
  const auto service = makeService();
  service->allFinish();
  EXPECT_TRUE(finish_->percents.empty());
  service->commonFinish();
  EXPECT_EQ(service->cleanFinshCount, 1);
  EXPECT_TRUE(finish_->percents.empty());
  service->commonFinish();
  EXPECT_EQ(finish_->percents, std::vector<float>{0.75F});
  EXPECT_EQ(finish_->finishes.size(), 1U);
  service->commonFinish();
  EXPECT_EQ(finish_->finishes.size(), 1U);
}

TEST_F(HelperCleanServiceTest, commonCleanWithAFailedRecordKeepsTheStatusNone) {
  const auto failed = leafWith(kOn, kDeleteError, 3, "text");
  const auto service = makeService({category(kOn, {failed})});
  service->commonDeleteSize = 10;
  service->helperDeleteSize = 20;
  service->errorDesc = "old";
  service->cleanFinshCount = 2;
  service->allFinish();
  EXPECT_EQ(finish().size, 30);
  EXPECT_EQ(finish().abnormalFiles, Records{failed});
  EXPECT_EQ(finish().status, kStatusNone);
  EXPECT_EQ(finish().desc, "text,");
  EXPECT_EQ(service->errorDesc, "text,");
}

class OtherTypes : public HelperCleanServiceTest, public testing::WithParamInterface<CleanServiceType> {};

TEST_P(OtherTypes, reportTheRepairsOwnSize) {
  Ref<CategoryInformation> seen;
  const ScopedRepair repair(GetParam(), [&](const Ref<CategoryInformation>& all, const auto&) {
    seen = all;
    return TreeRepairResult{42, {}, "not read", std::nullopt};
  });
  const auto all = category(kOn, {});
  const auto service = makeService({all, category(kOn, {})}, GetParam());
  service->commonDeleteSize = 10;
  service->cleanFinshCount = 2;
  service->allFinish();
  EXPECT_EQ(seen, all);
  EXPECT_EQ(finish_->percents, std::vector<float>{0.75F});
  EXPECT_EQ(finish().size, 42);
  EXPECT_EQ(finish().status, kStatusNone);
  EXPECT_EQ(finish().desc, "");
  EXPECT_EQ(finish().allCategorys, service->cleanCategorys);
  EXPECT_EQ(finish().allCategorys.size(), 2U);
}

TEST_P(OtherTypes, reportFailedRecordsAsAnError) {
  const auto failed = leaf("a");
  const ScopedRepair repair(GetParam(), [&](const auto&, const auto&) {
    return TreeRepairResult{1, {failed}, "texts,", std::nullopt};
  });
  const auto service = makeService({}, GetParam());
  service->errorDesc = "message";
  service->cleanFinshCount = 2;
  service->allFinish();
  EXPECT_EQ(finish().abnormalFiles, Records{failed});
  EXPECT_EQ(finish().status, kDeleteError);
  EXPECT_EQ(finish().desc, "texts,");
}

TEST_P(OtherTypes, keepTheMessageIfNoRecordFailed) {
  const ScopedRepair repair(GetParam(), [](const auto&, const auto&) { return TreeRepairResult(); });
  const auto service = makeService({}, GetParam());
  service->errorStatus = kDeleteError;
  service->errorDesc = "message";
  service->cleanFinshCount = 2;
  service->allFinish();
  EXPECT_EQ(finish().status, kDeleteError);
  EXPECT_EQ(finish().desc, "message");
}

TEST_P(OtherTypes, endWithoutARepairToo) {
  const ScopedRepair repair(GetParam(), nullptr);
  const auto all = category(kOn, {leafWith(kOn, kDeleteError)});
  const auto service = makeService({all}, GetParam());
  service->cleanFinshCount = 2;
  service->allFinish();
  EXPECT_EQ(finish().size, 0);
  EXPECT_TRUE(finish().abnormalFiles.empty());
  EXPECT_EQ(finish().allCategorys, Categorys{all});
}

std::string nameOfType(const testing::TestParamInfo<CleanServiceType>& type) {
  static const Names kNames = {"common", "largeAndOld", "duplicate", "similar", "uninstall"};
  return kNames[static_cast<std::size_t>(rawValue(type.param))];
}

INSTANTIATE_TEST_SUITE_P(HelperCleanService, OtherTypes,
                         testing::Values(CleanServiceType::LargeAndOldFile, CleanServiceType::Duplicate,
                                         CleanServiceType::Similar, CleanServiceType::Uninstall),
                         nameOfType);

TEST_F(HelperCleanServiceTest, uninstallTakesTheCategoriesOfItsRepair) {
  const auto made = category(kOff, {});
  Ref<FeatureInformation> seen;
  const ScopedRepair repair(CleanServiceType::Uninstall,
                            [&](const auto&, const Ref<FeatureInformation>& feature) {
                              seen = feature;
                              return TreeRepairResult{3, {}, "", Categorys{made}};
                            });
  const auto service = makeService({category(kOn, {})}, CleanServiceType::Uninstall);
  service->featureInformation = stage_.feature;
  service->cleanFinshCount = 2;
  service->allFinish();
  EXPECT_EQ(seen, stage_.feature);
  EXPECT_EQ(finish().allCategorys, Categorys{made});
  EXPECT_EQ(service->cleanCategorys, Categorys{made});
}

TEST_F(HelperCleanServiceTest, operationsAreOpenToOverriding) {
  class Other : public HelperCleanService {
   public:
    using HelperCleanService::HelperCleanService;
    std::pair<FileRecords, std::string> sortCategory(HelperCleanService& service) override {
      isOwn = &service == this;
      return {{}, "mine"};
    }
    bool isOwn = false;
  };
  const auto service = std::make_shared<Other>(finish_, CleanServiceType::Common, Categorys());
  service->cleanFinshCount = 1;
  service->commonFinish();
  EXPECT_TRUE(service->isOwn);
  EXPECT_EQ(finish().desc, "mine");
}

// The repair for Common

TEST_F(HelperCleanServiceTest, repairTakesDeletedRecordsOut) {
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

TEST_F(HelperCleanServiceTest, repairKeepsADeletedRecordThatIsNotOn) {
  const auto off = leafWith(kOff, kDeleteSuccess, 3);
  const auto all = category(kOn, {off});
  const auto service = makeService({all});
  EXPECT_TRUE(service->sortCategory(*service).first.empty());
  EXPECT_EQ(all->childrens.refs(), Records{off});
  EXPECT_EQ(all->size, 3);
}

TEST_F(HelperCleanServiceTest, repairTakesARecordThatIsOnAndWasNotSelectedBelow) {
  const auto all =
      category(kMixed, {folder(kOn, {leafWith(kOn, kStatusNone), leafWith(kOn, kDeleteSuccess)})});
  const auto service = makeService({all});
  EXPECT_TRUE(service->sortCategory(*service).first.empty());
  EXPECT_TRUE(all->childrens.empty());
}

TEST_F(HelperCleanServiceTest, repairKeepsAFailedRecordAndClearsItsTick) {
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

TEST_F(HelperCleanServiceTest, repairCountsALeafStillAtDeleteingAsFailed) {
  const auto waiting = leafWith(kOn, kDeleteing);
  const auto service = makeService({category(kOn, {waiting})});
  const auto [records, text] = service->sortCategory(*service);
  EXPECT_EQ(records, Records{waiting});
  EXPECT_EQ(text, ",");
}

TEST_F(HelperCleanServiceTest, repairNamesEqualFailedLeavesOnceAndTheirTextsEach) {
  const auto first = leafWith(kOn, kDeleteError, 1, "a");
  const auto twin = makeRecord({first->url, kOn, 1, true, {}, first->finderID});
  twin->deleteStatus = kDeleteError;
  twin->deleteErrorDesc = "b";
  const auto service = makeService({category(kOn, {first, twin})});
  const auto [records, text] = service->sortCategory(*service);
  EXPECT_EQ(records, Records{first});
  EXPECT_EQ(text, "a,b,");
}

TEST_F(HelperCleanServiceTest, repairNamesLeavesAndNotTheirFolders) {
  const auto a = leafWith(kOff, kDeleteError, 1, "a");
  const auto b = leafWith(kOn, kDeleteError, 1, "b");
  const auto parent = folder(kOn, {folder(kOn, {a}), leafWith(kOn, kDeleteSuccess), b});
  parent->deleteStatus = kDeleteError;
  const auto service = makeService({category(kOn, {parent})});
  const auto [records, text] = service->sortCategory(*service);
  EXPECT_EQ(records, (Records{a, b}));
  EXPECT_EQ(text, "a,b,");
}

TEST_F(HelperCleanServiceTest, repairCleansARecordThatStaysAndItsMixedChildren) {
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

TEST_F(HelperCleanServiceTest, repairLooksBelowRecordsThatAreOffWhenItNumbersThem) {
  const auto kept = leafWith(kOff, kStatusNone, 2);
  const auto off = folder(kOff, {leafWith(kOn, kDeleteSuccess, 8), kept});
  const auto all = category(kMixed, {folder(kMixed, {off})});
  const auto service = makeService({all});
  service->sortCategory(*service);
  EXPECT_EQ(off->childrens.refs(), Records{kept});
  EXPECT_EQ(all->size, 2);
}

TEST_F(HelperCleanServiceTest, repairTakesAnEmptiedMixedFolderForALeafNoMore) {
  const auto emptied = folder(kMixed, {leafWith(kOn, kDeleteSuccess, 8)}, 8);
  const auto all = category(kMixed, {emptied});
  const auto service = makeService({all});
  service->sortCategory(*service);
  EXPECT_EQ(all->childrens.refs(), Records{emptied});
  EXPECT_TRUE(emptied->childrens.empty());
  EXPECT_EQ(emptied->size, 0);
}

TEST_F(HelperCleanServiceTest, repairKeepsATickedFolderBelowARecordThatStaysAndEmptiesIt) {
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

TEST_F(HelperCleanServiceTest, repairNumbersWhatIsLeft) {
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

TEST_F(HelperCleanServiceTest, repairLeavesACategoryThatIsOffOutOfTheTallyButNumbersIt) {
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

TEST_F(HelperCleanServiceTest, repairRemovesEmptiedCategoriesThatAskForIt) {
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

TEST_F(HelperCleanServiceTest, repairKeepsAnEmptiedCategoryThatDoesNotAskForIt) {
  const auto emptied = category(kOn, {leafWith(kOn, kDeleteSuccess, 9)});
  emptied->size = 9;
  const auto service = makeService({emptied});
  service->sortCategory(*service);
  EXPECT_EQ(service->cleanCategorys, Categorys{emptied});
  EXPECT_EQ(emptied->size, 0);
  EXPECT_EQ(emptied->finderID, 77);
}

TEST_F(HelperCleanServiceTest, firstCategoryDecidesOnTheNumbersOfAll) {
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

TEST_F(HelperCleanServiceTest, repairRefreshesHashValueStrings) {
  const auto kept = leafWith(kOff, kStatusNone, 5);
  const auto service = makeService({category(kMixed, {leafWith(kOn, kDeleteSuccess), kept})});
  service->sortCategory(*service);
  EXPECT_EQ(kept->hashValueString, "0:0:5:" + kept->url.absoluteString());
}

TEST_F(HelperCleanServiceTest, emptiedCategoryThatWasGivenTwiceIsAFatalStop) {
  const auto all = category(kOn, {leafWith(kOn, kDeleteSuccess), leafWith(kOn, kDeleteSuccess)});
  const auto service = makeService({all, all});
  EXPECT_DEATH(service->sortCategory(*service), "Index out of range");
}

TEST_F(HelperCleanServiceTest, repairTrapsSizesThatOverflow) {
  const auto service =
      makeService({category(kMixed, {leafWith(kOff, kStatusNone, std::numeric_limits<std::int64_t>::max()),
                                     leafWith(kOff, kStatusNone)})});
  EXPECT_DEATH(service->sortCategory(*service), "overflow");
}

}  // namespace
}  // namespace sorrel
