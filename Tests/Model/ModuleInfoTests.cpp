#include "SorrelFramework/Model/ModuleInfo.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"
#include "Tests/Model/ModuleInfoKit.hpp"

namespace sorrel::test {
namespace {

template <class Records>
std::vector<Integer> finderIDs(const Records& records) {
  std::vector<Integer> found;
  found.reserve(records.size());
  for (const auto& record : records) found.push_back(record.finderID);
  return found;
}

std::vector<Integer> finderIDs(const std::vector<Ref<ModuleInformation>>& modules) {
  std::vector<Integer> found;
  found.reserve(modules.size());
  for (const Ref<ModuleInformation>& record : modules) found.push_back(record->finderID);
  return found;
}

std::vector<std::string> texts(const std::vector<URL>& urls) {
  std::vector<std::string> found;
  found.reserve(urls.size());
  for (const URL& url : urls) found.push_back(url.absoluteString());
  return found;
}

TEST_F(ModuleInfo, constructorFillsEachField) {
  const auto record = makeRef<ModuleInformation>(4, "title", "type", Image::named("image"), "description",
                                                 "version", Children<FeatureInformation>());
  EXPECT_EQ(record->finderID, 4);
  EXPECT_EQ(record->title, "title");
  EXPECT_EQ(record->type, "type");
  EXPECT_EQ(record->image, Image::named("image"));
  EXPECT_EQ(record->description, "description");
  EXPECT_EQ(record->version, "version");
  EXPECT_TRUE(record->featureInfo.empty());
}

TEST_F(ModuleInfo, emptyCatalogueHasNoModules) { EXPECT_TRUE(read({}).empty()); }

TEST_F(ModuleInfo, moduleKeysGoToTheirFields) {
  const auto modules = read({{"any key", Dictionary{{"finder", 9},
                                                    {"title", "Cleaner"},
                                                    {"image", ""},
                                                    {"description", "cleans"},
                                                    {"version", "2.1"},
                                                    {"type", "free word"},
                                                    {"module", Array{}}}}});
  ASSERT_EQ(modules.size(), 1U);
  EXPECT_EQ(modules[0]->finderID, 9);
  EXPECT_EQ(modules[0]->title, "Cleaner");
  EXPECT_EQ(modules[0]->description, "cleans");
  EXPECT_EQ(modules[0]->version, "2.1");
  EXPECT_EQ(modules[0]->type, "free word");
  EXPECT_TRUE(modules[0]->featureInfo.empty());
}

TEST_F(ModuleInfo, featureKeysGoToTheirFields) {
  const auto record = readFeature(Dictionary{
      {"finder", 5}, {"status", -1}, {"image", ""}, {"title", "Junk"}, {"description", "finds junk"}});
  EXPECT_EQ(record->finderID, 5);
  EXPECT_EQ(record->state, NSControlStateValueMixed);
  EXPECT_EQ(record->title, "Junk");
  EXPECT_EQ(record->description, "finds junk");
  EXPECT_TRUE(record->categoryInfo.empty());
  EXPECT_EQ(record->moduleInfo->finderID, 1);
  EXPECT_FALSE(record->attachInfomation.has_value());
}

TEST_F(ModuleInfo, categoryKeysGoToTheirFields) {
  const auto record =
      readCategory(Dictionary{{"finder", 6},
                              {"status", 1},
                              {"title", "Caches"},
                              {"image", ""},
                              {"description", "caches of programs"},
                              {"type", "SystemCache"},
                              {"urls", Array{location("file:///a/"), location("file:///b")}}});
  EXPECT_EQ(record->finderID, 6);
  EXPECT_EQ(record->state, NSControlStateValueOn);
  EXPECT_EQ(record->title, "Caches");
  EXPECT_EQ(record->description, "caches of programs");
  EXPECT_EQ(record->kind, rawValue(CategoryInfomationKind::SystemCache));
  EXPECT_EQ(texts(record->urls), (std::vector<std::string>{"file:///a/", "file:///b"}));
}

TEST_F(ModuleInfo, categoryStartsEmptyOnItsTopLevel) {
  const auto record = readCategory(category(6));
  EXPECT_EQ(record->size, 0);
  EXPECT_TRUE(record->childrens.empty());
  EXPECT_TRUE(record->urls.empty());
  EXPECT_EQ(record->levelInt, 0);
  EXPECT_FALSE(record->needRemoveCategory);
  EXPECT_FALSE(record->childrenCateogry.has_value());
  EXPECT_FALSE(record->parentCategory);
  EXPECT_FALSE(record->attachInfomation.has_value());
  EXPECT_EQ(record->featureInfo->title, "feature");
}

TEST_F(ModuleInfo, hashValueStringOfALoadedCategoryTakesInItsLocations) {
  const auto record = readCategory(with(category(6), "urls", Array{location("file:///a/")}));
  // md5sum(1) of 6:1:0:[file:///a/]:0
  EXPECT_EQ(record->hashValueString, "02ECE84D4D3F257B4E9D432ACB08BC55");
}

TEST_F(ModuleInfo, modulesComeByFinderIDWhateverTheKeyOrder) {
  EXPECT_EQ(finderIDs(read({{"a", module(2)}, {"b", module(1)}})), (std::vector<Integer>{1, 2}));
  EXPECT_EQ(finderIDs(read({{"b", module(1)}, {"a", module(2)}, {"c", module(-5)}})),
            (std::vector<Integer>{-5, 1, 2}));
}

TEST_F(ModuleInfo, modulesOfTheSameFinderAllCome) {
  EXPECT_EQ(finderIDs(read({{"a", module(1)}, {"b", module(1)}})), (std::vector<Integer>{1, 1}));
}

TEST_F(ModuleInfo, featuresKeepTheOrderOfTheCatalogue) {
  const auto modules = read({{"m", module(1, {feature(3), feature(1), feature(2)})}});
  EXPECT_EQ(finderIDs(modules[0]->featureInfo), (std::vector<Integer>{3, 1, 2}));
}

TEST_F(ModuleInfo, categoriesComeByFinderID) {
  const auto record = readFeature(feature(1, {category(3), category(1), category(2)}));
  EXPECT_EQ(finderIDs(record->categoryInfo), (std::vector<Integer>{1, 2, 3}));
}

TEST_F(ModuleInfo, typeOfACategoryIsComparedExactly) {
  const std::pair<const char*, CategoryInfomationKind> rows[] = {
      {"SystemCache", CategoryInfomationKind::SystemCache},
      {"EmailAttachment", CategoryInfomationKind::EmailAttachment},
      {"systemcache", CategoryInfomationKind::Common},
      {"SystemCache ", CategoryInfomationKind::Common},
      {"App", CategoryInfomationKind::Common},
      {"", CategoryInfomationKind::Common},
  };
  for (const auto& [word, kind] : rows) {
    EXPECT_EQ(readCategory(with(category(1), "type", word))->kind, rawValue(kind)) << word;
  }
}

TEST_F(ModuleInfo, missingCategoriesAndLocationsCountAsNone) {
  EXPECT_TRUE(readFeature(without(feature(1), "category"))->categoryInfo.empty());
  EXPECT_TRUE(readCategory(without(category(1), "urls"))->urls.empty());
}

TEST_F(ModuleInfo, mistypedCategoriesCountAsNone) {
  const PropertyList wrong[] = {"text", 1, Dictionary{{"0", category(1)}}, Array{"text"},
                                Array{category(1), "text"}};
  for (const PropertyList& value : wrong) {
    EXPECT_TRUE(readFeature(with(feature(1), "category", value))->categoryInfo.empty());
  }
}

TEST_F(ModuleInfo, mistypedLocationsCountAsNone) {
  const PropertyList wrong[] = {"file:///a", 1, location("file:///a"), Array{"file:///a"},
                                Array{location("file:///a"), "file:///b"}};
  for (const PropertyList& value : wrong) {
    EXPECT_TRUE(readCategory(with(category(1), "urls", value))->urls.empty());
  }
}

TEST_F(ModuleInfo, mistypedTypeOfAFeatureCountsAsMissing) {
  const auto record = readFeature(with(feature(1, {category(4)}), "type", Array{"Uninstaller"}));
  EXPECT_EQ(finderIDs(record->categoryInfo), (std::vector<Integer>{4}));
}

TEST_F(ModuleInfo, unknownTypeOfAFeatureChangesNothing) {
  for (const char* const word : {"LargeAndOldFiles", "uninstaller", "SystemJunk", ""}) {
    const auto record = readFeature(with(feature(1, {category(4)}), "type", word));
    EXPECT_EQ(finderIDs(record->categoryInfo), (std::vector<Integer>{4})) << word;
    EXPECT_EQ(record->categoryInfo[0].levelInt, 0) << word;
  }
}

TEST_F(ModuleInfo, largeAndOldFilesComeUnderOneRow) {
  const auto record =
      readFeature(with(feature(3, {category(3), category(1), category(2)}), "type", "LaregeAndOldFiles"));
  ASSERT_EQ(record->categoryInfo.size(), 1U);
  const CategoryInformation& all = record->categoryInfo[0];
  EXPECT_EQ(all.state, NSControlStateValueOff);
  EXPECT_EQ(all.finderID, 0);
  EXPECT_EQ(all.title, "All");
  EXPECT_TRUE(all.icon.isEmpty());
  EXPECT_EQ(all.size, 0);
  EXPECT_EQ(all.description, "");
  EXPECT_EQ(all.kind, 5);
  EXPECT_TRUE(all.urls.empty());
  EXPECT_TRUE(all.childrens.empty());
  EXPECT_EQ(all.featureInfo.get(), record.get());
  EXPECT_FALSE(all.attachInfomation.has_value());
  EXPECT_EQ(all.levelInt, 0);
  EXPECT_FALSE(all.needRemoveCategory);
  ASSERT_TRUE(all.childrenCateogry.has_value());
  EXPECT_EQ(finderIDs(*all.childrenCateogry), (std::vector<Integer>{1, 2, 3}));
}

TEST_F(ModuleInfo, categoriesUnderTheOneRowAreOnLevelOneAndNotLinkedToIt) {
  const auto record = readFeature(with(feature(3, {category(1), category(2)}), "type", "LaregeAndOldFiles"));
  for (const CategoryInformation& sub : *record->categoryInfo[0].childrenCateogry) {
    EXPECT_EQ(sub.levelInt, 1);
    EXPECT_FALSE(sub.parentCategory);
    EXPECT_FALSE(sub.childrenCateogry.has_value());
    EXPECT_EQ(sub.featureInfo.get(), record.get());
  }
}

TEST_F(ModuleInfo, largeAndOldFilesWithoutCategoriesStillHaveTheOneRow) {
  const auto record = readFeature(with(feature(3), "type", "LaregeAndOldFiles"));
  ASSERT_EQ(record->categoryInfo.size(), 1U);
  ASSERT_TRUE(record->categoryInfo[0].childrenCateogry.has_value());
  EXPECT_TRUE(record->categoryInfo[0].childrenCateogry->empty());
}

TEST_F(ModuleInfo, uninstallerShowsItsThreeRowsInPlaceOfTheCatalogues) {
  const auto record = readFeature(with(
      feature(10, {category(5), category(6), category(7), category(8), category(9)}), "type", "Uninstaller"));
  ASSERT_EQ(record->categoryInfo.size(), 3U);
  const char* const titles[] = {"All", "Unused", "Leftovers"};
  for (std::size_t i = 0; i < 3; ++i) {
    const CategoryInformation& row = record->categoryInfo[i];
    EXPECT_EQ(row.finderID, static_cast<Integer>(i));
    EXPECT_EQ(row.title, titles[i]);
    EXPECT_EQ(row.kind, 6);
    EXPECT_EQ(row.state, NSControlStateValueOff);
    EXPECT_TRUE(row.icon.isEmpty());
    EXPECT_EQ(row.size, 0);
    EXPECT_EQ(row.description, "");
    EXPECT_EQ(row.levelInt, 0);
    EXPECT_TRUE(row.urls.empty());
    EXPECT_TRUE(row.childrens.empty());
    EXPECT_FALSE(row.needRemoveCategory);
    EXPECT_EQ(row.featureInfo.get(), record.get());
    ASSERT_TRUE(row.childrenCateogry.has_value());
    EXPECT_TRUE(row.childrenCateogry->empty());
  }
}

TEST_F(ModuleInfo, numbersBridgeWhereTheValueStaysTheSame) {
  EXPECT_EQ(readCategory(with(category(1), "finder", 4.0))->finderID, 4);
  EXPECT_EQ(readCategory(with(category(1), "status", true))->state, 1);
  EXPECT_EQ(readCategory(with(category(1), "status", false))->state, 0);
}

TEST_F(ModuleInfo, statusIsStoredAsItIs) {
  EXPECT_EQ(readFeature(with(feature(1), "status", 42))->state, 42);
  EXPECT_EQ(readCategory(with(category(1), "status", -7))->state, -7);
}

TEST_F(ModuleInfo, imagesThatNobodyHasAreEmpty) {
  const std::string none = "no picture of this name c6a1";
  EXPECT_TRUE(read({{"m", with(module(1), "image", none)}})[0]->image.isEmpty());
  EXPECT_TRUE(readFeature(with(feature(1), "image", none))->icon.isEmpty());
  EXPECT_TRUE(readCategory(with(category(1), "image", none))->icon.isEmpty());
}

TEST_F(ModuleInfo, imagesAreFoundAmongTheResourcesOfTheMainBundle) {
  folder_.file("Resources/broom.png", "png");
  EXPECT_EQ(read({{"m", with(module(1), "image", "broom")}})[0]->image, Image::named("broom"));
  EXPECT_EQ(readFeature(with(feature(1), "image", "broom"))->icon, Image::named("broom"));
  EXPECT_EQ(readCategory(with(category(1), "image", "broom"))->icon, Image::named("broom"));
}

TEST_F(ModuleInfo, locationsUnderTheTildeBelongToTheUser) {
  const auto record = readCategory(with(category(1), "urls", Array{location("file://~/Library/Caches/")}));
  EXPECT_EQ(texts(record->urls), (std::vector<std::string>{"file:///Users/alice/Library/Caches/"}));
}

TEST_F(ModuleInfo, locationsLieBelowTheRootOfTheVolume) {
  useVolume(folder_.path("volume"));
  const auto record = readCategory(with(
      category(1), "urls", Array{location("file://~/Library/Caches/"), location("file:///Library/Logs/")}));
  EXPECT_EQ(texts(record->urls),
            (std::vector<std::string>{"file://" + folder_.path("volume/Users/alice/Library/Caches/"),
                                      "file://" + folder_.path("volume/Library/Logs/")}));
}

TEST_F(ModuleInfo, locationThatIsNoURLBecomesTheCurrentFolderAndKeepsItsPlace) {
  useVolume(folder_.path("volume"));
  const auto record = readCategory(
      with(category(1), "urls", Array{location("file:///a b"), location(""), location("https://a.b/")}));
  ASSERT_EQ(record->urls.size(), 3U);
  EXPECT_TRUE(record->urls[0].isEmptyPath());
  EXPECT_EQ(record->urls[0], URL());
  EXPECT_TRUE(record->urls[1].isEmptyPath());
  EXPECT_EQ(record->urls[2].absoluteString(), "https://a.b/");
}

TEST_F(ModuleInfo, keysThatNobodyKnowsAreIgnored) {
  const auto record = readCategory(with(category(2), "colour", "green"));
  EXPECT_EQ(record->finderID, 2);
}

TEST_F(ModuleInfo, readsTheBinaryForm) {
  write({{"m", module(8, {feature(1)})}}, PropertyListFormat::Binary);
  EXPECT_EQ(finderIDs(ModuleInformation::getModule(file())), (std::vector<Integer>{8}));
}

TEST_F(ModuleInfo, readsTheDefaultCatalogueFromTheMainBundle) {
  folder_.folder("Resources");
  ASSERT_TRUE(writePropertyListFile(folder_.path("Resources/Feature.plist"), Dictionary{{"m", module(6)}}));
  EXPECT_EQ(finderIDs(ModuleInformation::getModule()), (std::vector<Integer>{6}));
}

TEST_F(ModuleInfo, eachReadMakesATreeOfItsOwn) {
  write({{"m", module(1)}});
  const auto first = ModuleInformation::getModule(file());
  const auto second = ModuleInformation::getModule(file());
  EXPECT_FALSE(first[0] == second[0]);
}

TEST_F(ModuleInfo, treeIsLinkedUpwards) {
  const auto modules = read({{"m", module(1, {feature(2, {category(3)})})}});
  FeatureInformation& record = modules[0]->featureInfo[0];
  EXPECT_EQ(record.moduleInfo.get(), modules[0].get());
  EXPECT_EQ(record.categoryInfo[0].featureInfo.get(), &record);
}

TEST_F(ModuleInfo, modulesKeepTheWholeTreeAndFreeItWithThem) {
  auto modules = read({{"m", module(1, {with(feature(2, {category(3)}), "type", "LaregeAndOldFiles")})}});
  auto life = std::make_shared<int>();
  const std::weak_ptr<int> watched = life;
  modules[0]->featureInfo[0].categoryInfo[0].childrenCateogry->front().attachInfomation = std::move(life);
  EXPECT_FALSE(watched.expired());
  modules.clear();
  EXPECT_TRUE(watched.expired());
}

TEST_F(ModuleInfo, categoryAloneKeepsItsModule) {
  auto modules = read({{"m", module(1, {feature(2, {category(3)})})}});
  const Ref<CategoryInformation> kept = modules[0]->featureInfo[0].categoryInfo.ref(0);
  modules.clear();
  EXPECT_EQ(kept->featureInfo->moduleInfo->title, "module");
}

TEST_F(ModuleInfo, updateModuleURLReplacesEveryTilde) {
  EXPECT_EQ(ModuleInformation::updateModuleURL("file://~/a"), "file:///Users/alice/a");
  EXPECT_EQ(ModuleInformation::updateModuleURL("file://~/"), "file:///Users/alice/");
  EXPECT_EQ(ModuleInformation::updateModuleURL("file://~/a,file://~/b"),
            "file:///Users/alice/a,file:///Users/alice/b");
  EXPECT_EQ(ModuleInformation::updateModuleURL("x file://~/ y"), "x file:///Users/alice/ y");
}

TEST_F(ModuleInfo, updateModuleURLTouchesNothingElse) {
  for (const char* const text : {"", "file:///~/a", "file://~", "file://~bob/a", "~/a", "File://~/a",
                                 "file:///Library/", "https://~/", "file:/~/", "not a url"}) {
    EXPECT_EQ(ModuleInformation::updateModuleURL(text), text);
  }
}

TEST_F(ModuleInfo, updateModuleURLLeavesTheRootOfTheVolumeToTheReader) {
  useVolume("/mnt/disk");
  EXPECT_EQ(ModuleInformation::updateModuleURL("file://~/a"), "file:///Users/alice/a");
}

}  // namespace
}  // namespace sorrel::test
