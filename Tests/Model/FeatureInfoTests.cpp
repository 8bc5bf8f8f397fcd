#include "SorrelFramework/Model/FeatureInfo.hpp"

#include <gtest/gtest.h>

#include <any>
#include <memory>
#include <vector>

#include "SorrelFramework/Model/ModuleInfo.hpp"

namespace sorrel {
namespace {

Ref<ModuleInformation> makeModule() {
  return makeRef<ModuleInformation>(1, "", "", Image(), "", "", Children<FeatureInformation>());
}

Ref<FeatureInformation> makeFeature(const Ref<ModuleInformation>& module, std::any payload = {}) {
  return makeRef<FeatureInformation>(7, 1, Image::named("icon"), "title", "description",
                                     Children<CategoryInformation>(), module, std::move(payload));
}

TEST(FeatureInformation, constructorFillsEachField) {
  const auto module = makeModule();
  const auto category =
      makeRef<CategoryInformation>(0, 3, "", Image(), 0, "", 1, std::vector<URL>(),
                                   Children<FileInformation>(), makeFeature(module), std::any(), 0, false);
  const auto feature =
      makeRef<FeatureInformation>(7, NSControlStateValueMixed, Image::named("icon"), "title", "description",
                                  Children<CategoryInformation>{category}, module, std::any(5));

  EXPECT_EQ(feature->finderID, 7);
  EXPECT_EQ(feature->state, -1);
  EXPECT_EQ(feature->icon, Image::named("icon"));
  EXPECT_EQ(feature->title, "title");
  EXPECT_EQ(feature->description, "description");
  ASSERT_EQ(feature->categoryInfo.size(), 1U);
  EXPECT_EQ(&feature->categoryInfo[0], category.get());
  EXPECT_EQ(feature->moduleInfo.get(), module.get());
  EXPECT_EQ(std::any_cast<int>(feature->attachInfomation), 5);
}

TEST(FeatureInformation, untouchedRecordHoldsNoPayload) {
  EXPECT_FALSE(makeFeature(makeModule())->attachInfomation.has_value());
}

TEST(FeatureInformation, ownerLivesAsLongAsTheFeatureIsInUse) {
  const auto feature = makeFeature(makeModule());
  EXPECT_EQ(feature->moduleInfo->finderID, 1);
}

TEST(FeatureInformation, isFreedWithItsModule) {
  auto life = std::make_shared<int>();
  const std::weak_ptr<int> watched = life;
  auto module = makeModule();
  module->featureInfo.push_back(makeFeature(module, std::move(life)));
  EXPECT_FALSE(watched.expired());
  module = nullptr;
  EXPECT_TRUE(watched.expired());
}

TEST(FeatureInformation, newCategoriesFreeTheOldOnes) {
  auto life = std::make_shared<int>();
  const std::weak_ptr<int> watched = life;
  const auto feature = makeFeature(makeModule());
  feature->categoryInfo.push_back(makeRef<CategoryInformation>(
      0, 3, "", Image(), 0, "", 1, std::vector<URL>(), Children<FileInformation>(), feature,
      std::any(std::move(life)), 0, false));
  EXPECT_FALSE(watched.expired());
  feature->categoryInfo = {};
  EXPECT_TRUE(watched.expired());
}

template <class Record>
concept HasEquality = requires(const Record& a, const Record& b) {
  a == b;
};

TEST(FeatureInformation, hasNoEqualityButThatOfTheObject) {
  EXPECT_FALSE(HasEquality<FeatureInformation>);
  EXPECT_FALSE(HasEquality<ModuleInformation>);
}

}  // namespace
}  // namespace sorrel
