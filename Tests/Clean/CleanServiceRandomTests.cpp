#include "SorrelFramework/Clean/CleanService.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Tests/Clean/CleanServiceKit.hpp"
#include "Tests/Support/CleanCases.hpp"
#include "Tests/Support/NumberFrom.hpp"

namespace sorrel::test {
namespace {

// Random trees with random ticks, compared with another formulation of the rule.

void runCase(const CleanCase& sketch, const std::vector<Ref<CategoryInformation>>& tree,
             const std::shared_ptr<FinishRecord>& finish) {
  switch (sketch.entry) {
    case CleanCase::Entry::Categorys:
      CleanService::cleanCategorys(tree, CleanServiceType::Common, finish);
      break;
    case CleanCase::Entry::Groups:
      CleanService::cleanDuplicateAndSimilarCategorys(*tree[0], CleanServiceType::Duplicate, finish);
      break;
    case CleanCase::Entry::LargeAndOld:
      CleanService::cleanLargeAndOldCategorys(*tree[0], CleanServiceType::LargeAndOldFile, finish);
      break;
  }
  ASSERT_TRUE(finish->waitUntilFinished());
  EXPECT_EQ(finish->percents, kFullProgress);
}

/// The names that the deletion of a leaf removes from the disk: its own and all below it.
Names namesGone(const CleanCase::Outcome& outcome, const std::vector<TreeEntry>& before) {
  Names gone;
  for (const TreeEntry& entry : before) {
    for (const auto& [name, fate] : outcome.leaves) {
      if (fate.isGone && (entry.path == name || entry.path.starts_with(name + "/"))) {
        gone.push_back(entry.path);
        break;
      }
    }
  }
  return gone;
}

/// No ticks, numbers in order, correct sums of sizes.
void expectRepaired(const Children<FileInformation>& level, Integer parentFinderID, std::int64_t size) {
  std::int64_t total = 0;
  for (std::size_t i = 0; i < level.size(); ++i) {
    const FileInformation& file = level[i];
    EXPECT_EQ(file.state, kOff);
    EXPECT_EQ(file.finderID, static_cast<Integer>(i));
    EXPECT_EQ(file.parentFinderID, parentFinderID);
    if (!file.childrens.empty()) expectRepaired(file.childrens, file.finderID, file.size);
    total += file.size;
  }
  EXPECT_EQ(size, total);
}

void expectRepaired(const std::vector<Ref<CategoryInformation>>& categorys) {
  for (std::size_t i = 0; i < categorys.size(); ++i) {
    EXPECT_EQ(categorys[i]->state, kOff);
    expectRepaired(categorys[i]->childrens, static_cast<Integer>(i), categorys[i]->size);
  }
}

/// The numbers that the categories had and the names of the records, top down.
Names namesOf(const std::vector<Ref<CategoryInformation>>& categorys,
              const std::vector<Ref<CategoryInformation>>& tree, const CleanStage& stage) {
  const std::string root = stage.volume.path() + "/";
  Names names;
  const std::function<void(const FileInformation&)> add = [&](const FileInformation& file) {
    names.push_back(file.url.path().substr(root.size()));
    for (const FileInformation& child : file.childrens) add(child);
  };
  for (const Ref<CategoryInformation>& category : categorys) {
    names.push_back(std::to_string(std::ranges::find(tree, category) - tree.begin()));
    for (const FileInformation& file : category->childrens) add(file);
  }
  return names;
}

void expectCommonEnd(const CleanCase::Outcome& expected, const FinishRecord::Finish& finish,
                     const std::vector<Ref<CategoryInformation>>& tree, const CleanStage& stage) {
  EXPECT_EQ(finish.size, expected.size);
  EXPECT_EQ(finish.status, expected.status);
  Names failed;
  std::string desc;
  for (const Ref<FileInformation>& file : finish.abnormalFiles) {
    failed.push_back(file->url.path().substr(stage.volume.path().size() + 1));
    desc += file->deleteErrorDesc + ",";
  }
  EXPECT_EQ(failed, expected.failed);
  EXPECT_EQ(finish.desc, desc);
  EXPECT_EQ(namesOf(finish.allCategorys, tree, stage), expected.tree);
  expectRepaired(finish.allCategorys);
}

void prepareStage(const CleanCase& sketch, CleanStage& stage) {
  sketch.makeFiles(stage.volume);
  Names failing;
  for (const std::string& name : sketch.userFails) failing.push_back(stage.volume.path(name));
  stage.failRemoving(failing, EACCES);
  std::set<std::string> refused;
  for (const std::string& name : sketch.helperRefuses) refused.insert(stage.volume.path(name));
  switch (sketch.helper) {
    case CleanCase::Helper::Deletes:
      stage.setHelper(std::make_shared<ScriptedHelper>(
          deletingWhere([refused](const std::string& path) { return !refused.contains(path); })));
      break;
    case CleanCase::Helper::SendsNothing:
      stage.setHelper(std::make_shared<ScriptedHelper>(
          [](const auto&) { return std::optional(ScriptedHelper::Reply()); }));
      break;
    case CleanCase::Helper::Refused:
      CleanStage::refuseHelper();
      break;
  }
}

void checkCase(const CleanCase& sketch) {
  const UnrepairedLargeFiles unrepaired;
  CleanStage stage;
  prepareStage(sketch, stage);
  const auto before = snapshotOf(stage.volume.path());
  const CleanCase::Outcome expected = sketch.outcome();

  std::map<std::string, Ref<FileInformation>> leaves;
  const auto finish = std::make_shared<FinishRecord>();
  const auto tree = sketch.makeTree(stage, leaves);
  ASSERT_NO_FATAL_FAILURE(runCase(sketch, tree, finish));
  const auto after = snapshotOf(stage.volume.path());
  EXPECT_EQ(goneBetween(before, after), namesGone(expected, before));
  for (const auto& [name, fate] : expected.leaves)
    EXPECT_EQ(leaves.at(name)->deleteStatus, fate.status) << name;
  if (sketch.entry == CleanCase::Entry::Categorys) {
    expectCommonEnd(expected, finish->finishes.at(0), tree, stage);
  }

  // The same ticks once more: nothing is left to delete.
  leaves.clear();
  const auto again = std::make_shared<FinishRecord>();
  ASSERT_NO_FATAL_FAILURE(runCase(sketch, sketch.makeTree(stage, leaves), again));
  EXPECT_EQ(snapshotOf(stage.volume.path()), after);
  EXPECT_EQ(finish->finishCount(), 1U);
  EXPECT_EQ(again->finishCount(), 1U);
}

// SORREL_CLEAN_CASES sets the total number, SORREL_CLEAN_SEED the seed of the first: a failing case runs
// again with its seed and a count of 1. In four parts, which may run in parallel.
class CleanServiceProperty : public testing::TestWithParam<unsigned> {};

TEST_P(CleanServiceProperty, randomCleansTakeWhatTheRulesSelectAndNothingElse) {
  const auto first = static_cast<unsigned>(numberFrom("SORREL_CLEAN_SEED", 1));
  const auto count = static_cast<unsigned>(numberFrom("SORREL_CLEAN_CASES", 2000));
  for (unsigned seed = first + GetParam(); seed < first + count && !HasFailure(); seed += 4) {
    SCOPED_TRACE("SORREL_CLEAN_SEED=" + std::to_string(seed));
    checkCase(CleanCase(seed));
  }
}

INSTANTIATE_TEST_SUITE_P(Parts, CleanServiceProperty, testing::Range(0U, 4U));

}  // namespace
}  // namespace sorrel::test
