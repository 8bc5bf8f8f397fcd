#include "SorrelFramework/Model/Ref.hpp"

#include <gtest/gtest.h>

#include <any>
#include <concepts>
#include <cstddef>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Model/ModuleInfo.hpp"
#include "Tests/Model/RefKit.hpp"

namespace sorrel::test {
namespace {

// The promises of Ref, on the records of the tree themselves.

template <class Record>
concept LivesOnTheHeapOnly = !std::destructible<Record> && !std::copy_constructible<Record> &&
                             !std::is_copy_assignable_v<Record> && !std::convertible_to<Record*, Ref<Record>>;
static_assert(LivesOnTheHeapOnly<ModuleInformation>);
static_assert(LivesOnTheHeapOnly<FeatureInformation>);
static_assert(LivesOnTheHeapOnly<CategoryInformation>);
static_assert(LivesOnTheHeapOnly<FileInformation>);

// A copy of a field has the field's type.
static_assert(
    std::is_same_v<std::decay_t<decltype(CategoryInformation::childrens)>, Children<FileInformation>>);
static_assert(std::is_same_v<std::decay_t<decltype(CategoryInformation::childrenCateogry)>,
                             std::optional<Children<CategoryInformation>>>);

/// A module with one feature, one category with a sub-category, a folder record and a file record in it.
struct RealTree {
  Life moduleLife, fileLife;
  Ref<FileInformation> file;

  RealTree() {
    const auto module =
        makeRef<ModuleInformation>(1, "", "", Image(), "", "", Children<FeatureInformation>());
    const auto feature = makeRef<FeatureInformation>(2, 0, Image(), "", "", Children<CategoryInformation>(),
                                                     module, moduleLife.watch());
    const auto all = makeCategory(feature);
    const auto sub = makeCategory(feature);
    const auto folder = makeFile(sub, {}, std::any());
    file = makeFile(sub, folder, fileLife.watch());
    module->featureInfo.push_back(feature);
    feature->categoryInfo.push_back(all);
    all->childrenCateogry = Children<CategoryInformation>{sub};
    sub->parentCategory = all;
    sub->childrens.push_back(folder);
    folder->childrens.push_back(file);
  }

  static Ref<CategoryInformation> makeCategory(const Ref<FeatureInformation>& feature) {
    return makeRef<CategoryInformation>(0, 0, "", Image(), 0, "", 1, std::vector<URL>(),
                                        Children<FileInformation>(), feature, std::any(), 0, false);
  }
  static Ref<FileInformation> makeFile(const Ref<CategoryInformation>& category,
                                       const Ref<FileInformation>& parent, std::any payload) {
    return makeRef<FileInformation>(0, 0, 0, "", Image(), 0, Date(), URL(), "", true, false,
                                    std::move(payload), Children<FileInformation>(), category, 1, 0, parent);
  }
};

TEST(RefRecords, fileRecordAloneReachesItsModule) {
  const RealTree tree;
  const CategoryInformation& category = *tree.file->parentFileInfo->parentCategoryInfo;
  EXPECT_EQ(category.parentCategory->featureInfo->moduleInfo->finderID, 1);
  EXPECT_FALSE(tree.moduleLife.over());
}

TEST(RefRecords, treeOfRecordsIsFreedWithTheLastFileHandle) {
  RealTree tree;
  tree.file = nullptr;
  EXPECT_TRUE(tree.moduleLife.over());
  EXPECT_TRUE(tree.fileLife.over());
}

Ref<FeatureInformation> makeFeature(const Ref<ModuleInformation>& module = {}) {
  return makeRef<FeatureInformation>(3, 0, Image(), "", "", Children<CategoryInformation>(), module,
                                     std::any());
}

TEST(RefRecords, keptArrayOfARowThatIsGoneLeadsToItsModule) {
  RealTree tree;
  Ref<CategoryInformation> row = tree.file->parentCategoryInfo;
  Children<FileInformation> shown = row->childrens;
  row->childrens.clear();
  row = nullptr;
  tree.file = nullptr;
  EXPECT_EQ(shown[0].parentCategoryInfo->title, "");
  EXPECT_EQ(shown[0].parentCategoryInfo->parentCategory->featureInfo->moduleInfo->finderID, 1);
  shown.clear();
  EXPECT_TRUE(tree.moduleLife.over() && tree.fileLife.over());
}

TEST(RefRecords, keptRowsOfATreeThatIsGoneLeadToTheirModule) {
  RealTree tree;
  std::optional<Children<CategoryInformation>> rows =
      tree.file->parentCategoryInfo->parentCategory->childrenCateogry;
  auto categories = tree.file->parentCategoryInfo->featureInfo->categoryInfo;
  tree.file = nullptr;
  EXPECT_EQ((*rows)[0].parentCategory->featureInfo->moduleInfo->finderID, 1);
  EXPECT_EQ(categories[0].featureInfo->moduleInfo->finderID, 1);
  rows.reset();
  EXPECT_FALSE(tree.moduleLife.over());
  categories = {};
  EXPECT_TRUE(tree.moduleLife.over() && tree.fileLife.over());
}

TEST(RefRecords, rowsThatAreGivenToTheTreeHoldNothingAbove) {
  std::vector<Life> lives;
  for (int spelling = 0; spelling < 6; ++spelling) {
    Life life;
    const auto feature = makeRef<FeatureInformation>(3, 0, Image(), "", "", Children<CategoryInformation>(),
                                                     Ref<ModuleInformation>(), life.watch());
    const auto all = RealTree::makeCategory(feature);
    feature->categoryInfo = {all};
    const auto sub = RealTree::makeCategory(feature);
    sub->parentCategory = all;
    if (spelling == 0) all->childrenCateogry = Children<CategoryInformation>{sub};
    if (spelling == 1) all->childrenCateogry.emplace().push_back(sub);
    if (spelling == 2) all->childrenCateogry = std::optional(Children<CategoryInformation>{sub});
    if (spelling == 3) all->childrenCateogry = {sub};
    if (spelling == 4) std::optional<Children<CategoryInformation>>({sub}).swap(all->childrenCateogry);
    if (spelling == 5) all->childrenCateogry.emplace({sub});
    ASSERT_EQ(all->childrenCateogry->size(), 1U) << spelling;
    EXPECT_FALSE(life.over());
    lives.push_back(std::move(life));
  }
  for (std::size_t i = 0; i < lives.size(); ++i) EXPECT_TRUE(lives[i].over()) << i;
}

TEST(RefRecords, recordThatLivesOnInAnotherRowLeadsToItsOldOne) {
  RealTree tree;
  const auto keeper = RealTree::makeCategory(makeFeature());
  keeper->childrens.push_back(tree.file->parentFileInfo);
  tree.file = nullptr;
  const FileInformation& folder = keeper->childrens[0];
  EXPECT_EQ(folder.parentCategoryInfo->parentCategory->featureInfo->moduleInfo->finderID, 1);
  EXPECT_EQ(folder.childrens[0].parentCategoryInfo, folder.parentCategoryInfo);
  EXPECT_EQ(folder.childrens[0].parentFileInfo.get(), &folder);
  EXPECT_FALSE(tree.moduleLife.over());
  keeper->childrens.clear();
  EXPECT_TRUE(tree.moduleLife.over() && tree.fileLife.over());
}

TEST(RefRecords, recordBelowAGroupThatIsGoneLeadsToTheGroup) {
  const auto keeper = RealTree::makeCategory(makeFeature());
  Life life;
  {
    const auto gone = RealTree::makeCategory(makeFeature());
    const auto group = RealTree::makeFile(gone, {}, life.watch());
    const auto item = RealTree::makeFile(gone, group, std::any());
    gone->childrens.push_back(group);
    group->childrens.push_back(item);
    keeper->childrens.push_back(item);
  }
  EXPECT_EQ(keeper->childrens[0].parentFileInfo->parentCategoryInfo, keeper->childrens[0].parentCategoryInfo);
  EXPECT_FALSE(life.over());
  keeper->childrens.clear();
  EXPECT_TRUE(life.over());
}

TEST(RefRecords, rowThatLivesOnLeadsToItsOldFeature) {
  Children<CategoryInformation> kept;
  {
    const auto gone = makeFeature();
    const auto all = RealTree::makeCategory(gone);
    const auto sub = RealTree::makeCategory(gone);
    gone->categoryInfo.push_back(all);
    all->childrenCateogry = Children<CategoryInformation>{sub};
    sub->parentCategory = all;
    kept.push_back(sub);
  }
  EXPECT_EQ(kept[0].parentCategory->featureInfo->finderID, 3);
  EXPECT_EQ(kept[0].featureInfo->finderID, 3);
}

}  // namespace
}  // namespace sorrel::test
