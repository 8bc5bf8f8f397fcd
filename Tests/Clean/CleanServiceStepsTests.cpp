#include "SorrelFramework/Clean/CleanService.hpp"

#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Tests/Clean/CleanServiceKit.hpp"

namespace sorrel::test {
namespace {

using CleanServiceStepsTest = CleanServiceTest;

TEST_F(CleanServiceStepsTest, updateDeleteStatusSortsByCanDelete) {
  const auto service = makeService();
  const auto own = leaf("a");
  const auto foreign = leaf("b", kOn, 1, false);
  CleanService::updateDeleteStatus(*own, kDeleteing, *service);
  CleanService::updateDeleteStatus(*foreign, kDeleteError, *service);
  EXPECT_EQ(service->commonDelete.records(), Records{own});
  EXPECT_EQ(service->helperDelete.records(), Records{foreign});
  EXPECT_EQ(own->deleteStatus, kDeleteing);
  EXPECT_EQ(foreign->deleteStatus, kDeleteError);
}

TEST_F(CleanServiceStepsTest, recordsThatCompareEqualAreHeldOnce) {
  const auto first = leaf("a");
  const auto twin = makeRecord({first->url, kOn, 1});
  ASSERT_EQ(*first, *twin);
  const auto service = makeService();
  for (const auto& record : {first, twin, first}) {
    CleanService::updateDeleteStatus(*record, kDeleteing, *service);
  }
  EXPECT_EQ(service->commonDelete.records(), Records{first});
  EXPECT_EQ(twin->deleteStatus, kDeleteing);
}

TEST_F(CleanServiceStepsTest, recordInTwoCategoriesIsRemovedOnce) {
  const auto shared = leaf("a", kOn, 5);
  EXPECT_EQ(clean({category(kOn, {shared}), category(kMixed, {shared})}), Names{"a"});
  EXPECT_EQ(finish_->finishes.at(0).size, 5);
  EXPECT_TRUE(finish_->finishes.at(0).abnormalFiles.empty());
}

TEST_F(CleanServiceStepsTest, handleMixStatusLeavesARecordThatIsNotMixedAlone) {
  const auto service = makeService();
  CleanService::handleMixStatus(*folder("d", kOn, {leaf("d/a", kOn)}), *service);
  CleanService::handleMixStatus(*folder("e", kOff, {leaf("e/a", kOn)}), *service);
  EXPECT_TRUE(service->commonDelete.empty());
}

TEST_F(CleanServiceStepsTest, treesOfAnyDepthAreSelectedDeletedAndRepaired) {
  const auto bottom = leaf("a", kOn, 3);
  Ref<FileInformation> top = bottom;
  for (Integer i = 0; i < 100'000; ++i) {
    top = makeRecord({stage_.volume.url("d/"), kMixed, 0, true, {top}, i});
  }
  const auto all = category(kMixed, {top});
  EXPECT_EQ(clean({all}), Names{"a"});
  EXPECT_EQ(finish_->finishes.at(0).size, 3);
  EXPECT_EQ(bottom->deleteStatus, kDeleteSuccess);
}

/// Runs `work` on a thread with a stack of 512 KiB.
void onSmallStack(const std::function<void()>& work) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, 512 << 10), 0);
  const auto run = [](void* argument) -> void* {
    (*static_cast<const std::function<void()>*>(argument))();
    return nullptr;
  };
  pthread_t thread{};
  ASSERT_EQ(pthread_create(&thread, &attributes, run, const_cast<std::function<void()>*>(&work)), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attributes);
}

TEST_F(CleanServiceStepsTest, deepTreesGoThroughBothHalvesOnASmallStack) {
  stage_.failRemoving({path("a"), path("b")}, EACCES);
  const auto refused = leaf("b", kOn, 4);
  stage_.setHelper(std::make_shared<ScriptedHelper>(
      deletingWhere([this](const std::string& at) { return at == path("a"); }),
      ScriptedHelper::Thread::Caller));
  onSmallStack([&] {
    Ref<FileInformation> top =
        makeRecord({stage_.volume.url("d/"), kOn, 0, true, {leaf("a", kOn, 3), refused}});
    for (Integer i = 0; i < 20'000; ++i) {
      top = makeRecord({stage_.volume.url("d/"), kMixed, 0, true, {top}, i});
    }
    const auto all = category(kMixed, {top});
    top = nullptr;
    const auto service = makeService({all});
    CleanService::handleMixStatus(all->childrens[0], *service);
    CleanService::deleteFiles(*service);
    EXPECT_EQ(all->size, 4);
  });
  EXPECT_EQ(finish_->finishes.at(0).size, 3);
  EXPECT_EQ(finish_->finishes.at(0).abnormalFiles, Records{refused});
  finish_->finishes.clear();
}

TEST_F(CleanServiceStepsTest, folderWithAFailingChildCountsOneFailureAndNoSize) {
  stage_.failRemoving({path("d/b")}, EACCES);
  const auto broken = folder("d", kOn, {leaf("d/a"), leaf("d/b"), leaf("d/c")}, 30);
  EXPECT_EQ(CleanService::deleteFile(*broken, CleanService::fileManager.begin()), 1);
  EXPECT_EQ(broken->deleteStatus, kDeleteError);
  EXPECT_EQ(broken->childrens[0].deleteStatus, kDeleteSuccess);
  EXPECT_EQ(broken->childrens[1].deleteStatus, kDeleteError);
  EXPECT_EQ(broken->childrens[1].deleteErrorDesc,
            "“b” couldn’t be removed because you don’t have permission to access it.");
  EXPECT_EQ(broken->childrens[2].deleteStatus, kDeleteSuccess);
  EXPECT_EQ(broken->deleteErrorDesc, "");
  EXPECT_TRUE(std::filesystem::exists(path("d/b")));
  EXPECT_FALSE(std::filesystem::exists(path("d/c")));
}

TEST_F(CleanServiceStepsTest, failedRecordGoesToTheAbnormalOnesWithoutItsSize) {
  stage_.failRemoving({path("d/b"), path("d/e/f")}, EIO);
  const auto deep = folder("d/e", kOn, {leaf("d/e/f")});
  const auto broken = folder("d", kOn, {leaf("d/a"), leaf("d/b"), deep}, 30);
  const auto whole = leaf("w", kOn, 4);
  const auto service = makeService({category(kOn, {broken, whole})});
  for (const auto& record : {broken, whole}) {
    CleanService::updateDeleteStatus(*record, kDeleteing, *service);
  }
  CleanService::deleteFiles(*service);
  EXPECT_EQ(service->commonDelete.records(), Records{whole});
  EXPECT_EQ(service->commonDeleteAbnormal.records(), Records{broken});
  EXPECT_EQ(service->commonDeleteFinishCount, 1);
  EXPECT_EQ(service->commonDeleteAbnormalCount, 1);
  EXPECT_EQ(service->commonDeleteSize, 4);
  EXPECT_EQ(deep->deleteStatus, kDeleteError);
  EXPECT_EQ(finish_->finishes.at(0).size, 4);
}

TEST_F(CleanServiceStepsTest, folderKeepsDeleteingWhenAllItsChildrenAreGone) {
  const auto whole = folder("d", kOn, {leaf("d/a"), folder("d/e", kOn, {leaf("d/e/b")})}, 30);
  EXPECT_EQ(clean({category(kOn, {whole})}), (Names{"d/a", "d/e/b"}));
  EXPECT_EQ(whole->deleteStatus, kDeleteing);
  EXPECT_EQ(whole->childrens[1].deleteStatus, kStatusNone);
  EXPECT_EQ(finish_->finishes.at(0).size, 30);
}

TEST_F(CleanServiceStepsTest, recordThatTheUserMayNotDeleteIsNotTried) {
  stage_.failRemoving({}, 0);
  stage_.setHelper(std::make_shared<ScriptedHelper>(deletingWhere([](auto&) { return true; })));
  EXPECT_EQ(clean({category(kOn, {leaf("a", kOn, 1, false), leaf("b")})}), (Names{"a", "b"}));
  EXPECT_EQ(stage_.tried, Names{path("b")});
}

TEST_F(CleanServiceStepsTest, withoutLeaveOfTheHelperNothingOfItsShareChanges) {
  const Records foreign = {leaf("a", kOn, 1, false), leaf("d/b", kOn, 1, false)};
  const auto denying =
      std::make_shared<ScriptedHelper>(ScriptedHelper::deleting(HelperEventErrorID::DeleteError, "denied"));
  stage_.setHelper(denying);
  EXPECT_EQ(clean({category(kOn, foreign)}), Names());
  EXPECT_EQ(denying->events().size(), 1U);
  for (const auto& record : foreign) {
    EXPECT_EQ(record->deleteStatus, kDeleteError);
    EXPECT_EQ(record->deleteErrorDesc, "denied");
  }
  CleanStage::refuseHelper();
  finish_ = std::make_shared<FinishRecord>();
  EXPECT_EQ(clean({category(kOn, foreign)}), Names());
  EXPECT_EQ(finish_->finishes.at(0).abnormalFiles, foreign);
  EXPECT_EQ(finish_->finishCount(), 1U);
}

TEST_F(CleanServiceStepsTest, leafThatIsAFolderGoesWithAllThatLiesBelowIt) {
  stage_.volume.file("d/e/f", "x");
  const auto package = makeRecord({stage_.volume.url("d/"), kOn, 9});
  EXPECT_EQ(clean({category(kOn, {package})}), (Names{"d", "d/e", "d/e/f"}));
}

TEST_F(CleanServiceStepsTest, linkGoesAndWhatItLeadsToStays) {
  stage_.volume.file("target/a", "x");
  stage_.volume.link("l", path("target"));
  EXPECT_EQ(clean({category(kOn, {makeRecord({stage_.volume.url("l"), kOn})})}), Names{"l"});
}

TEST_F(CleanServiceStepsTest, missingFileIsAFailureWithItsName) {
  const auto missing = makeRecord({stage_.volume.url("no one"), kOn});
  EXPECT_EQ(clean({category(kOn, {missing})}), Names());
  EXPECT_EQ(missing->deleteStatus, kDeleteError);
  EXPECT_EQ(missing->deleteErrorDesc, "“no one” couldn’t be removed.");
  EXPECT_EQ(finish_->finishes.at(0).desc, "“no one” couldn’t be removed.,");
}

TEST_F(CleanServiceStepsTest, failureDoesNotStopTheClean) {
  stage_.failRemoving({path("a")}, EROFS);
  const auto first = leaf("a");
  EXPECT_EQ(clean({category(kOn, {first, leaf("b")})}), Names{"b"});
  EXPECT_EQ(first->deleteErrorDesc, "“a” couldn’t be removed because the volume is read only.");
}

TEST_F(CleanServiceStepsTest, recordsOfTheEmptyPathOrNoFileAreOrdinaryFailures) {
  stage_.failRemoving({}, 0);
  const auto helper = std::make_shared<ScriptedHelper>(deletingWhere([](auto&) { return true; }));
  stage_.setHelper(helper);
  const auto header = makeRecord({URL(), kOn, 4});
  const auto web = makeRecord({*URL::parse("https://example.org/etc/passwd"), kOn, 4});
  const auto foreignHeader = makeRecord({URL(), kOn, 5, false});
  EXPECT_EQ(clean({category(kOn, {header, web, foreignHeader})}), Names());
  for (const auto& record : {header, web, foreignHeader}) EXPECT_EQ(record->deleteStatus, kDeleteError);
  EXPECT_EQ(web->deleteErrorDesc, "“passwd” couldn’t be removed.");
  EXPECT_EQ(stage_.tried, Names());
  EXPECT_TRUE(helper->events().empty());
  EXPECT_EQ(stage_.helperNames, Names());
  EXPECT_EQ(finish_->finishes.at(0).abnormalFiles.size(), 3U);
}

TEST_F(CleanServiceStepsTest, nothingOutsideAVolumeIsRemoved) {
  const TemporaryFolder other;
  other.file("secret/a", "x");
  stage_.volume.link("way-out", other.path("secret"));
  stage_.setHelper(std::make_shared<ScriptedHelper>(deletingWhere([](auto&) { return true; })));
  const auto before = snapshotOf(other.path());
  const auto direct = makeRecord({URL::fileURL(other.path("secret/a"), false), kOn});
  const auto linked = makeRecord({stage_.volume.url("way-out/a"), kOn});
  const auto foreign = makeRecord({stage_.volume.url("way-out/a"), kOn, 1, false});
  EXPECT_EQ(clean({category(kOn, {direct, linked, foreign})}), Names());
  EXPECT_EQ(snapshotOf(other.path()), before);
  for (const auto& record : {direct, linked, foreign}) {
    EXPECT_EQ(record->deleteErrorDesc,
              "“a” couldn’t be removed because you don’t have permission to access it.");
  }
}

TEST_F(CleanServiceStepsTest, linkThatStaysInTheVolumeIsFollowedAboveAnItem) {
  stage_.volume.file("real/a", "x");
  stage_.volume.link("alias", path("real"));
  EXPECT_EQ(clean({category(kOn, {makeRecord({stage_.volume.url("alias/a"), kOn})})}), Names{"real/a"});
}

/// Records which of its operations run; the helper's half ends at once.
class NotingService : public HelperCleanService {
 public:
  using HelperCleanService::HelperCleanService;

  void allFinish() override {
    calls.push_back("allFinish " + std::to_string(cleanFinshCount));
    HelperCleanService::allFinish();
  }
  void commonFinish() override {
    calls.emplace_back("commonFinish");
    HelperCleanService::commonFinish();
  }
  void deleteHelperFile() override {
    calls.emplace_back("deleteHelperFile");
    HelperCleanService::deleteHelperFile();
  }
  std::pair<FileRecords, std::string> sortCategory(HelperCleanService& service) override {
    calls.emplace_back("sortCategory");
    return HelperCleanService::sortCategory(service);
  }

  Names calls;
};

TEST_F(CleanServiceStepsTest, halvesEndOneAfterTheOtherThroughOperationsOpenToOverriding) {
  const auto service = std::make_shared<NotingService>(finish_, CleanServiceType::Common,
                                                       std::vector<Ref<CategoryInformation>>());
  CleanService::deleteFiles(*service);
  EXPECT_EQ(service->calls,
            (Names{"commonFinish", "allFinish 1", "deleteHelperFile", "allFinish 2", "sortCategory"}));
}

TEST_F(CleanServiceStepsTest, progressComesBeforeAndAfterTheDeletionsAndBeforeTheRepair) {
  stage_.setHelper(std::make_shared<ScriptedHelper>(deletingWhere([](auto&) { return true; })));
  const auto all = category(kOn, {leaf("own"), leaf("foreign", kOn, 1, false)});
  Names seen;
  finish_->onProgress = [&](float) {
    seen.push_back(std::to_string(static_cast<int>(std::filesystem::exists(path("own")))) +
                   std::to_string(static_cast<int>(std::filesystem::exists(path("foreign")))) +
                   std::to_string(all->childrens.size()));
  };
  clean({all});
  EXPECT_EQ(seen, (Names{"112", "012", "002"}));
  EXPECT_TRUE(all->childrens.empty());
}

TEST_F(CleanServiceStepsTest, driftedCountsEndInAbnormalStatus) {
  const auto record = leaf("a", kOn, 4);
  const auto foreign = leaf("b", kOn, 1, false);
  const auto all = category(kOn, {record, foreign});
  const auto service = makeService({all});
  CleanService::updateDeleteStatus(*record, kDeleteing, *service);
  CleanService::updateDeleteStatus(*foreign, kDeleteing, *service);
  service->commonDeleteFinishCount = 1;
  service->helperDeleteSize = 2;
  CleanService::deleteFiles(*service);

  EXPECT_EQ(finish_->percents, (std::vector<float>{0.25F, 0.5F}));
  ASSERT_EQ(finish_->finishes.size(), 1U);
  EXPECT_EQ(finish_->finishes[0].allCategorys, std::vector{all});
  EXPECT_EQ(finish_->finishes[0].size, 6);
  EXPECT_TRUE(finish_->finishes[0].abnormalFiles.empty());
  EXPECT_EQ(finish_->finishes[0].status, kDeleteError);
  EXPECT_EQ(finish_->finishes[0].desc, "ABNORMAL STATUS!!!");
  EXPECT_EQ(stage_.helperNames, Names());
  EXPECT_EQ(all->childrens.size(), 2U);
  EXPECT_EQ(all->state, kOn);
}

TEST_F(CleanServiceStepsTest, sizesThatOverflowAreAFatalStop) {
  const auto service = makeService();
  service->commonDeleteSize = std::numeric_limits<std::int64_t>::max();
  CleanService::updateDeleteStatus(*leaf("a", kOn, 1), kDeleteing, *service);
  EXPECT_DEATH(CleanService::deleteFiles(*service), "overflow");
}

}  // namespace
}  // namespace sorrel::test
