#include "SorrelFramework/Clean/TreeRepair.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "SorrelFramework/Clean/CleanService.hpp"
#include "SorrelFramework/Clean/CleanServiceType.hpp"
#include "SorrelFramework/Scan/LargeAndOldFile/LargeAndOldFileService.hpp"
#include "Tests/Support/CleanKit.hpp"
#include "Tests/Support/ScanKit.hpp"

namespace sorrel {
namespace {

using Names = std::vector<std::string>;

TEST(TreeRepair, commonHasNoneOfItsOwnHere) {
  const TreeRepairResult result = treeRepair(CleanServiceType::Common)({}, {});
  EXPECT_EQ(result.size, 0);
  EXPECT_TRUE(result.abnormalFiles.empty());
  EXPECT_EQ(result.desc, "");
  EXPECT_FALSE(result.categorys.has_value());
}

TEST(TreeRepair, registeredRepairTakesThePlaceOfTheOneBefore) {
  auto original = registerTreeRepair(CleanServiceType::Similar, [](const auto&, const auto&) {
    return TreeRepairResult{1, {}, "", {}};
  });
  auto first = registerTreeRepair(CleanServiceType::Similar, [](const auto&, const auto&) {
    return TreeRepairResult{2, {}, "", {}};
  });
  EXPECT_EQ(first({}, {}).size, 1);
  EXPECT_EQ(treeRepair(CleanServiceType::Similar)({}, {}).size, 2);
  registerTreeRepair(CleanServiceType::Similar, nullptr);
  EXPECT_EQ(treeRepair(CleanServiceType::Similar)({}, {}).size, 0);
  registerTreeRepair(CleanServiceType::Similar, std::move(original));
}

/// The tree of large and old files over files of a volume.
class LargeAndOldRepair : public testing::Test {
 protected:
  Ref<FileInformation> add(const std::string& name, Integer state, bool canDelete = true) {
    stage.volume.file(name, name);
    auto file = test::makeRecord({stage.volume.url(name), state, 10, canDelete});
    file->finderID = static_cast<Integer>(all->childrens.size());
    LargeAndOldFileService::addToChildrenCategory(*all, *file, {}, {}, {});
    return file;
  }
  const test::FinishRecord::Finish& clean() {
    CleanService::cleanLargeAndOldCategorys(*all, CleanServiceType::LargeAndOldFile, finish);
    EXPECT_TRUE(finish->waitUntilFinished());
    return finish->finishes.at(0);
  }
  [[nodiscard]] std::size_t recordsInRows() const {
    std::size_t count = 0;
    for (const CategoryInformation& row : *all->childrenCateogry) count += row.childrens.size();
    return count;
  }

  test::CleanStage stage;
  Ref<FeatureInformation> feature = test::makeLargeAndOldFeature();
  Ref<CategoryInformation> all = feature->categoryInfo.ref(0);
  std::shared_ptr<test::FinishRecord> finish = std::make_shared<test::FinishRecord>();
};

TEST_F(LargeAndOldRepair, cleanOfSomeTakesThemOutOfAllRows) {
  const auto gone = add("a.zip", NSControlStateValueOn);
  const auto kept = add("b.zip", NSControlStateValueOff);
  const auto before = test::snapshotOf(stage.volume.path());
  const auto& end = clean();
  EXPECT_EQ(test::goneBetween(before, test::snapshotOf(stage.volume.path())), Names{"a.zip"});
  EXPECT_EQ(end.allCategorys, std::vector{all});
  EXPECT_EQ(end.size, 10);
  EXPECT_EQ(all->childrens.refs(), FileRecords{kept});
  EXPECT_EQ(kept->finderID, 0);
  EXPECT_EQ(recordsInRows(), 3U);
  EXPECT_EQ(all->size, 10);
}

TEST_F(LargeAndOldRepair, recordsThatWentAreToldInThePlaceOfThoseThatFailed) {
  const auto gone = add("a.zip", NSControlStateValueOn);
  const auto failed = add("b.zip", NSControlStateValueOn, false);
  stage.setHelper(
      std::make_shared<test::ScriptedHelper>(test::deletingWhere([](const std::string&) { return false; })));
  const auto& end = clean();
  EXPECT_EQ(gone->deleteStatus, rawValue(DeleteStatus::DeleteSuccess));
  EXPECT_EQ(failed->deleteStatus, rawValue(DeleteStatus::DeleteError));
  EXPECT_EQ(end.abnormalFiles, FileRecords{gone});
  EXPECT_EQ(end.status, rawValue(DeleteStatus::DeleteError));
  EXPECT_EQ(end.desc, stage.volume.path("a.zip") + ",");
  EXPECT_EQ(all->childrens.refs(), FileRecords{failed});
}

TEST_F(LargeAndOldRepair, cleanOfAllLeavesTheRowsEmpty) {
  for (const char* name : {"a.zip", "b.mov", "c"}) add(name, NSControlStateValueOn);
  EXPECT_EQ(clean().size, 30);
  EXPECT_TRUE(all->childrens.empty());
  EXPECT_EQ(recordsInRows(), 0U);
  EXPECT_EQ(all->size, 0);
}

TEST_F(LargeAndOldRepair, cleanWithoutACategoryHasNothingToRepair) {
  const TreeRepairResult result = treeRepair(CleanServiceType::LargeAndOldFile)({}, {});
  EXPECT_EQ(result.size, 0);
  EXPECT_TRUE(result.abnormalFiles.empty());
}

}  // namespace
}  // namespace sorrel
