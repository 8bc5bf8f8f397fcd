#include "SorrelFramework/Model/CategoryInfo.hpp"

#include <gtest/gtest.h>

#include <any>
#include <string>
#include <vector>

#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/ModuleInfo.hpp"

namespace sorrel {
namespace {

// Each digest below is that of md5sum(1), in upper case, over the text in the comment beside it.

Ref<FeatureInformation> makeFeature() {
  const auto module = makeRef<ModuleInformation>(1, "", "", Image(), "", "", Children<FeatureInformation>());
  return makeRef<FeatureInformation>(2, 0, Image(), "", "", Children<CategoryInformation>(), module,
                                     std::any());
}

Ref<FileInformation> makeFile() {
  return makeRef<FileInformation>(0, 0, 0, "", Image(), 0, Date(), URL(), "", true, false, std::any(),
                                  Children<FileInformation>(), Ref<CategoryInformation>(), 1, 0);
}

Ref<CategoryInformation> makeCategory(Integer finderID = 3, Integer kind = 1, std::int64_t size = 0,
                                      std::vector<URL> urls = {}, Children<FileInformation> childrens = {}) {
  return makeRef<CategoryInformation>(0, finderID, "", Image(), size, "", kind, std::move(urls),
                                      std::move(childrens), makeFeature(), std::any(), 0, false);
}

TEST(CategoryInformation, constructorFillsEachField) {
  const auto feature = makeFeature();
  const auto child = makeFile();
  const auto category = makeRef<CategoryInformation>(
      NSControlStateValueOn, 11, "title", Image::named("icon"), std::int64_t{1} << 40, "description",
      rawValue(CategoryInfomationKind::App), std::vector<URL>{URL::fileURL("/a", true)},
      Children<FileInformation>{child}, feature, std::any(12), 13, true);

  EXPECT_EQ(category->state, 1);
  EXPECT_EQ(category->finderID, 11);
  EXPECT_EQ(category->title, "title");
  EXPECT_EQ(category->icon, Image::named("icon"));
  EXPECT_EQ(category->size, 1'099'511'627'776);
  EXPECT_EQ(category->description, "description");
  EXPECT_EQ(category->kind, 6);
  EXPECT_EQ(category->urls, (std::vector<URL>{URL::fileURL("/a", true)}));
  ASSERT_EQ(category->childrens.size(), 1U);
  EXPECT_EQ(&category->childrens[0], child.get());
  EXPECT_EQ(category->featureInfo.get(), feature.get());
  EXPECT_EQ(std::any_cast<int>(category->attachInfomation), 12);
  EXPECT_EQ(category->levelInt, 13);
  EXPECT_TRUE(category->needRemoveCategory);
}

TEST(CategoryInformation, startsAsNoParentRowAndUnderNone) {
  const auto category = makeCategory();
  EXPECT_FALSE(category->childrenCateogry.has_value());
  EXPECT_FALSE(category->parentCategory);
}

TEST(CategoryInformation, hashValueStringIsTheDigestOfItsIdentity) {
  const auto category =
      makeCategory(3, 2, 10, {URL::fileURL("/a", true), URL::fileURL("/b c", false)}, {makeFile()});
  // 3:2:10:[file:///a/, file:///b%20c]:1
  EXPECT_EQ(category->hashValueString, "686E0FADDE4BFF4778B3BA0BB1B18EDC");
}

TEST(CategoryInformation, hashValueStringOfAnEmptyCategoryPrintsEmptyBrackets) {
  EXPECT_EQ(makeCategory()->hashValueString, "80AA74119361C77FFF1F131C17FF317D");  // 3:1:0:[]:0
}

TEST(CategoryInformation, noFieldButFinderIDRefreshesHashValueString) {
  const auto category = makeCategory();
  category->kind = 6;
  category->size = 99;
  category->urls = {URL::fileURL("/z", false)};
  category->childrens = {makeFile(), makeFile()};
  category->state = 1;
  category->levelInt = 1;
  category->childrenCateogry = Children<CategoryInformation>();
  EXPECT_EQ(category->hashValueString, "80AA74119361C77FFF1F131C17FF317D");  // 3:1:0:[]:0
}

TEST(CategoryInformation, assignmentOfFinderIDTakesThePresentValues) {
  const auto category = makeCategory();
  category->kind = 6;
  category->size = 99;
  category->urls = {URL::fileURL("/z", false)};
  category->childrens = {makeFile(), makeFile()};
  category->finderID = 4;
  EXPECT_EQ(category->hashValueString, "73A7D37940062CB3BAE244D974B25003");  // 4:6:99:[file:///z]:2
}

TEST(CategoryInformation, assignmentOfTheSameFinderIDRefreshesToo) {
  const auto category = makeCategory();
  category->kind = 6;
  category->size = 99;
  category->urls = {URL::fileURL("/z", false)};
  category->childrens = {makeFile(), makeFile()};
  category->finderID = 3;
  EXPECT_EQ(category->hashValueString, "E3B06E0C7DDD1CF34E83B4A73AAF9932");  // 3:6:99:[file:///z]:2
}

TEST(CategoryInformation, subCategoriesMayBeEmptyAndStillMakeAParentRow) {
  const auto category = makeCategory();
  category->childrenCateogry = Children<CategoryInformation>();
  ASSERT_TRUE(category->childrenCateogry.has_value());
  EXPECT_TRUE(category->childrenCateogry->empty());
  category->childrenCateogry.reset();
  EXPECT_FALSE(category->childrenCateogry.has_value());
}

TEST(CategoryInformation, subCategoryAloneKeepsTheRowAboveIt) {
  Ref<CategoryInformation> sub = makeCategory(2);
  {
    const auto all = makeCategory(1);
    all->childrenCateogry = Children<CategoryInformation>{sub};
    sub->parentCategory = all;
  }
  EXPECT_EQ(sub->parentCategory->finderID, 1);
  EXPECT_EQ(&(*sub->parentCategory->childrenCateogry)[0], sub.get());
}

TEST(CategoryInformation, ownerLivesAsLongAsTheCategoryIsInUse) {
  const auto category = makeCategory();  // its feature has no other owner
  EXPECT_EQ(category->featureInfo->finderID, 2);
  EXPECT_EQ(category->featureInfo->moduleInfo->finderID, 1);
}

TEST(CategoryInformation, payloadIsReadBackWithItsExactTypeOrNotAtAll) {
  const auto category = makeCategory();
  EXPECT_FALSE(category->attachInfomation.has_value());
  category->attachInfomation = std::string("text");
  EXPECT_EQ(*std::any_cast<std::string>(&category->attachInfomation), "text");
  EXPECT_EQ(std::any_cast<const char*>(&category->attachInfomation), nullptr);
}

template <class Record>
concept HasEquality = requires(const Record& a, const Record& b) {
  a == b;
};

TEST(CategoryInformation, hasNoEqualityButThatOfTheObject) {
  EXPECT_FALSE(HasEquality<CategoryInformation>);
  const auto a = makeCategory();
  const auto b = makeCategory();
  EXPECT_FALSE(a == b);
}

}  // namespace
}  // namespace sorrel
