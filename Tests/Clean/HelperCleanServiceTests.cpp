#include "SorrelFramework/Clean/HelperCleanService.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "SorrelFramework/Clean/CleanService.hpp"
#include "SorrelFramework/Clean/TreeRepair.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/Clean/HelperCleanServiceKit.hpp"

namespace sorrel::test {
namespace {

/// Replaces the repair of a type for the duration of a scope.
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

TEST_F(HelperCleanServiceTest, serviceOnTheStackTakesTheReply) {
  helperThat(ScriptedHelper::deleting(HelperEventErrorID::Success));
  const auto record = leaf("a", 5);
  HelperCleanService service(finish_, CleanServiceType::Common, {category(kOn, {record})});
  CleanService::updateDeleteStatus(*record, kDeleteing, service);
  service.commonFinish();
  service.deleteHelperFile();
  ASSERT_TRUE(finish_->waitUntilFinished());
  EXPECT_EQ(finish().size, 5);
  EXPECT_EQ(service.cleanFinshCount, 2);
}

/// Keeps the reply of an event until the test sends it.
class LateHelper : public HelperProtocol {
 public:
  void getHelperVersion(VersionReply) override {}
  void handleEvent(std::int32_t, const HelperDictionary&, EventReply reply) override {
    reply_ = std::move(reply);
  }
  void uninstall(UninstallReply) override {}
  void sendReply() const { reply_(true, 0, std::nullopt); }

 private:
  EventReply reply_;
};

TEST_F(HelperCleanServiceTest, replyAfterTheEndOfAServiceOnTheStackFindsNothingToDo) {
  const auto helper = std::make_shared<LateHelper>();
  const auto record = leaf("a");
  {
    HelperCleanService service(finish_, CleanServiceType::Common, {category(kOn, {record})});
    CleanService::updateDeleteStatus(*record, kDeleteing, service);
    service.privilegeHelper = helper;
    service.commonFinish();
    service.deleteHelperFile();
  }
  helper->sendReply();
  EXPECT_TRUE(finish_->finishes.empty());
}

TEST_F(HelperCleanServiceTest, serviceThatOnlyTheReplyHoldsEndsTheClean) {
  const auto helper = std::make_shared<LateHelper>();
  {
    const auto service = serviceFor({leaf("a")});
    service->privilegeHelper = helper;
    service->deleteHelperFile();
  }
  EXPECT_TRUE(finish_->finishes.empty());
  helper->sendReply();
  EXPECT_EQ(finish_->finishes.size(), 1U);
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

TEST_F(HelperCleanServiceTest, refusedRecordsAloneDoNotAskForTheHelper) {
  const auto helper = helperThat(ScriptedHelper::deleting(HelperEventErrorID::Success));
  const auto home = leaf("Users/alice/");
  const auto header = makeRecord({URL(), kOn, 1, false});
  run({makeRecord({stage_.volume.url("d/"), kOn, 0, false, {home}}), header});
  EXPECT_EQ(stage_.helperNames, Names());
  EXPECT_TRUE(helper->events().empty());
  EXPECT_EQ(finish().abnormalFiles, (Records{home, header}));
  EXPECT_EQ(finish().status, kStatusNone);
  EXPECT_EQ(finish().desc, home->deleteErrorDesc + "," + header->deleteErrorDesc + ",");
  for (const auto& record : {home, header}) EXPECT_EQ(record->deleteStatus, kDeleteError);
  EXPECT_EQ(finish_->percents, std::vector<float>{0.75F});
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

TEST_P(OtherTypes, withoutARepairTellTheTalliesAndTheFailures) {
  const ScopedRepair repair(GetParam(), nullptr);
  const auto gone = leafWith(kOn, kDeleteSuccess, 7);
  const auto own = leafWith(kOn, kDeleteError, 3, "own");
  const auto foreign = leafWith(kOn, kDeleteing, 2);
  const auto parent = folder(kOn, {leafWith(kOn, kDeleteSuccess), own});
  const auto all = category(kOn, {gone, parent, foreign});
  const auto service = makeService({all}, GetParam());
  service->commonDelete.insert(gone);
  service->commonDeleteAbnormal.insert(parent);
  service->helperDelete.insert(foreign);
  service->commonDeleteSize = 7;
  service->helperDeleteSize = 30;
  service->cleanFinshCount = 2;
  service->allFinish();
  EXPECT_EQ(finish().size, 37);
  EXPECT_EQ(finish().abnormalFiles, (Records{own, foreign}));
  EXPECT_EQ(finish().status, kDeleteError);
  EXPECT_EQ(finish().desc, "own,,");
  EXPECT_EQ(finish().allCategorys, Categorys{all});
  EXPECT_EQ(all->childrens.size(), 3U);
  EXPECT_EQ(all->state, kOn);
}

TEST_P(OtherTypes, withoutARepairAndWithoutFailuresKeepTheStatus) {
  const ScopedRepair repair(GetParam(), nullptr);
  const auto service = makeService({category(kOn, {})}, GetParam());
  service->commonDeleteSize = 7;
  service->cleanFinshCount = 2;
  service->allFinish();
  EXPECT_EQ(finish().size, 7);
  EXPECT_TRUE(finish().abnormalFiles.empty());
  EXPECT_EQ(finish().status, kStatusNone);
  EXPECT_EQ(finish().desc, "");
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

}  // namespace
}  // namespace sorrel::test
