#include "SorrelFramework/Model/Ref.hpp"

#include <gtest/gtest.h>

#include <any>
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

TEST(RefRecords, categoryThatIsFreedLeavesNoLinkInARecordThatLivesOn) {
  RealTree tree;
  const auto other = makeRef<FeatureInformation>(3, 0, Image(), "", "", Children<CategoryInformation>(),
                                                 Ref<ModuleInformation>(), std::any());
  const auto keeper = RealTree::makeCategory(other);
  keeper->childrens.push_back(tree.file->parentFileInfo);
  tree.file = nullptr;
  EXPECT_TRUE(tree.moduleLife.over());
  EXPECT_FALSE(keeper->childrens[0].parentCategoryInfo);
  EXPECT_FALSE(keeper->childrens[0].childrens[0].parentCategoryInfo);
  EXPECT_EQ(keeper->childrens[0].childrens[0].parentFileInfo.get(), &keeper->childrens[0]);
}

Ref<FeatureInformation> makeFeature(const Ref<ModuleInformation>& module = {}) {
  return makeRef<FeatureInformation>(3, 0, Image(), "", "", Children<CategoryInformation>(), module,
                                     std::any());
}

TEST(RefRecords, categoryThatIsFreedLeavesNoLinkInARecordBelowAGroupThatGoesWithIt) {
  const auto keeper = RealTree::makeCategory(makeFeature());
  {
    const auto gone = RealTree::makeCategory(makeFeature());
    const auto group = RealTree::makeFile(gone, {}, std::any());
    const auto item = RealTree::makeFile(gone, group, std::any());
    gone->childrens.push_back(group);
    group->childrens.push_back(item);
    keeper->childrens.push_back(item);
  }
  EXPECT_FALSE(keeper->childrens[0].parentFileInfo);
  EXPECT_FALSE(keeper->childrens[0].parentCategoryInfo);
}

TEST(RefRecords, categoryThatIsFreedLeavesNoLinkInTheRecordsOfItsSubCategories) {
  const auto keeper = RealTree::makeCategory(makeFeature());
  {
    const auto gone = RealTree::makeCategory(makeFeature());
    const auto sub = RealTree::makeCategory(makeFeature());
    gone->childrenCateogry = Children<CategoryInformation>{sub};
    const auto item = RealTree::makeFile(gone, {}, std::any());
    sub->childrens.push_back(item);
    keeper->childrens.push_back(item);
  }
  EXPECT_FALSE(keeper->childrens[0].parentCategoryInfo);
}

TEST(RefRecords, featureThatIsFreedLeavesNoLinkInASubCategoryThatLivesOn) {
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
  EXPECT_FALSE(kept[0].parentCategory);
  EXPECT_FALSE(kept[0].featureInfo);
}

}  // namespace
}  // namespace sorrel::test
