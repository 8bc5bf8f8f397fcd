#include "SorrelFramework/Clean/TreeRepair.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "SorrelFramework/Clean/CleanService.hpp"
#include "SorrelFramework/Clean/CleanServiceType.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"
#include "SorrelFramework/Scan/LargeAndOldFile/LargeAndOldFileService.hpp"
#include "SorrelFramework/Units/LogService.hpp"
#include "Tests/Support/CleanKit.hpp"
#include "Tests/Support/DuplicateCases.hpp"
#include "Tests/Support/NumberFrom.hpp"
#include "Tests/Support/ScanKit.hpp"

namespace sorrel {
namespace {

using Names = std::vector<std::string>;

TEST(TreeRepair, commonAndFindersThatAreNotThereHaveNone) {
  EXPECT_FALSE(treeRepair(CleanServiceType::Common));
  const auto before = registerTreeRepair(CleanServiceType::Similar, nullptr);
  EXPECT_FALSE(treeRepair(CleanServiceType::Similar));
  registerTreeRepair(CleanServiceType::Similar, before);
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
  EXPECT_FALSE(treeRepair(CleanServiceType::Similar));
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

// Duplicates

/// A clean with a current folder of its own, which the URL of a group's header stands for.
class DuplicateClean : public testing::TestWithParam<unsigned> {
 protected:
  DuplicateClean() {
    DuplicateScanService::limitSize = 0;
    canary_.file("a", "a");
    canary_.file("d/b", "b");
    std::filesystem::current_path(canary_.path());
  }
  ~DuplicateClean() override {
    DuplicateScanService::limitSize = 512;
    std::filesystem::current_path(home_);
  }

  static void scan(const test::CleanStage& stage, FeatureInformation& feature) {
    SuperScanService::scanStatus.resetForTesting();
    test::ScanRecord record;
    DuplicateScanService::scanDuplicate(feature, {stage.volume.url("Users/alice/Data/")}, nullptr,
                                        record.percent(), nullptr, record.treeDone(), record.queue);
    ASSERT_TRUE(record.waitUntilDone());
    LogService::shard().flushForTesting();  // the log lies in the volume too
  }

  /// The result of every repair: numbers without gaps, no ticks, at least two members, correct sums.
  static void expectInOrder(CategoryInformation& all) {
    std::int64_t sum = 0;
    for (std::size_t i = 0; i < all.childrens.size(); ++i) {
      const FileInformation& header = all.childrens[i];
      EXPECT_EQ(header.finderID, static_cast<Integer>(i));
      EXPECT_EQ(header.state, test::kOff);
      EXPECT_GT(header.childrens.size(), 1U);
      std::int64_t size = 0;
      for (std::size_t j = 0; j < header.childrens.size(); ++j) {
        const FileInformation& member = header.childrens[j];
        EXPECT_EQ(member.finderID, static_cast<Integer>(j));
        EXPECT_EQ(member.parentFinderID, static_cast<Integer>(i));
        EXPECT_EQ(member.state, test::kOff);
        size += member.size;
      }
      EXPECT_EQ(header.size, size);
      sum += size;
    }
    EXPECT_EQ(all.size, sum);
    EXPECT_EQ(all.childrenCateogry->size(), 7U);
  }

  void check(unsigned seed) {
    test::CleanStage stage;
    test::DuplicateCase sketch(seed);
    sketch.makeFiles(stage.volume);
    const auto feature = test::makeFeature(7, {{CategoryInfomationKind::Common, {}}});
    ASSERT_NO_FATAL_FAILURE(scan(stage, *feature));
    const Ref<CategoryInformation> all = feature->categoryInfo.ref(0);
    const std::set<std::string> selected = sketch.tick(*all);
    selected_ += selected.size();
    const auto before = test::snapshotOf(stage.volume.path());
    Names expected;
    for (const test::TreeEntry& entry : before) {
      std::string path = stage.volume.path(entry.path);
      while (!selected.contains(path) && path.size() > stage.volume.path().size()) {
        path.resize(path.rfind('/'));
      }
      if (selected.contains(path)) expected.push_back(entry.path);
    }
    const auto still = test::snapshotOf(canary_.path());
    const auto finish = std::make_shared<test::FinishRecord>();
    CleanService::cleanDuplicateAndSimilarCategorys(*all, CleanServiceType::Duplicate, finish);
    ASSERT_TRUE(finish->waitUntilFinished());
    EXPECT_EQ(test::goneBetween(before, test::snapshotOf(stage.volume.path())), expected);
    EXPECT_EQ(test::snapshotOf(canary_.path()), still);
    EXPECT_EQ(finish->finishCount(), 1U);
    EXPECT_EQ(finish->finishes[0].allCategorys, std::vector{all});
    expectInOrder(*all);
  }

  test::TemporaryFolder canary_;
  std::filesystem::path home_ = std::filesystem::current_path();
  std::size_t selected_ = 0;
};

// SORREL_CLEAN_CASES sets the total number, SORREL_CLEAN_SEED the seed of the first: a failing case runs
// again with its seed and a count of 1. In four parts, which may run in parallel.
TEST_P(DuplicateClean, randomTicksTakeTheMembersTheySelectAndNothingElse) {
  const auto first = static_cast<unsigned>(test::numberFrom("SORREL_CLEAN_SEED", 1));
  const auto count = static_cast<unsigned>(test::numberFrom("SORREL_CLEAN_CASES", 600));
  for (unsigned seed = first + GetParam(); seed < first + count && !HasFailure(); seed += 4) {
    SCOPED_TRACE("SORREL_CLEAN_SEED=" + std::to_string(seed));
    check(seed);
  }
  if (count > 100) {
    EXPECT_GT(selected_, count / 8);
  }
}

INSTANTIATE_TEST_SUITE_P(Parts, DuplicateClean, testing::Range(0U, 4U));

TEST(DuplicateRepairInATable, withoutACategoryHasNothingToRepair) {
  const TreeRepairResult result = treeRepair(CleanServiceType::Duplicate)({}, {});
  EXPECT_EQ(result.size, 0);
  EXPECT_TRUE(result.abnormalFiles.empty());
}

TEST(DuplicateRepairInATable, tellsBytesFailuresAndTheirTexts) {
  test::CleanStage stage;
  const auto gone = test::makeRecord({stage.volume.url("a"), test::kOn, 10});
  const auto failed = test::makeRecord({stage.volume.url("b"), test::kOn, 20});
  gone->deleteStatus = test::kDeleteSuccess;
  failed->deleteStatus = test::kDeleteError;
  failed->deleteErrorDesc = "no";
  const auto header = test::makeRecord({URL(), test::kMixed, 30, true, {gone, failed}});
  const auto all = test::makeCategory(stage.feature, test::kMixed, {header});
  const TreeRepairResult result = treeRepair(CleanServiceType::Duplicate)(all, {});
  EXPECT_EQ(result.size, 10);
  EXPECT_EQ(result.abnormalFiles, FileRecords{failed});
  EXPECT_EQ(result.desc, "no\n");
  EXPECT_FALSE(result.categorys.has_value());
  EXPECT_TRUE(all->childrens.empty());
}

}  // namespace
}  // namespace sorrel
