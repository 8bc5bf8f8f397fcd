#include "SorrelFramework/Model/RecordParts.hpp"

#include <gtest/gtest.h>

#include "Tests/Support/ScanKit.hpp"

namespace sorrel {
namespace {

TEST(RecordParts, fileHasThePartsThatWereGiven) {
  const auto feature = test::makeFeature(1, {{CategoryInfomationKind::Common, {}}});
  const Ref<CategoryInformation> category = feature->categoryInfo.ref(0);
  const auto file = makeFile({.state = NSControlStateValueOn,
                              .finderID = 3,
                              .parentFinderID = 4,
                              .title = "title",
                              .size = 5,
                              .date = {6},
                              .url = URL::fileURL("/a", false),
                              .canDelete = true,
                              .parentCategoryInfo = category,
                              .fileKind = rawValue(FilesKind::Package),
                              .levelInt = 7});
  EXPECT_EQ(file->state, NSControlStateValueOn);
  EXPECT_EQ(file->finderID, 3);
  EXPECT_EQ(file->parentFinderID, 4);
  EXPECT_EQ(file->title, "title");
  EXPECT_EQ(file->size, 5);
  EXPECT_EQ(file->date.secondsSince1970, 6);
  EXPECT_EQ(file->url.path(), "/a");
  EXPECT_TRUE(file->canDelete);
  EXPECT_FALSE(file->removeCategory);
  EXPECT_EQ(file->parentCategoryInfo.get(), category.get());
  EXPECT_EQ(file->fileKind, rawValue(FilesKind::Package));
  EXPECT_EQ(file->levelInt, 7);
  EXPECT_EQ(file->parentFileInfo.get(), nullptr);
}

TEST(RecordParts, categoryHasThePartsThatWereGiven) {
  const auto feature = test::makeFeature(1, {});
  const auto category = makeCategory({.state = NSControlStateValueMixed,
                                      .finderID = 2,
                                      .title = "title",
                                      .size = 3,
                                      .description = "text",
                                      .kind = rawValue(CategoryInfomationKind::App),
                                      .urls = {URL::fileURL("/a", true)},
                                      .featureInfo = feature,
                                      .levelInt = 4,
                                      .needRemoveCategory = true});
  EXPECT_EQ(category->state, NSControlStateValueMixed);
  EXPECT_EQ(category->finderID, 2);
  EXPECT_EQ(category->title, "title");
  EXPECT_EQ(category->size, 3);
  EXPECT_EQ(category->description, "text");
  EXPECT_EQ(category->kind, rawValue(CategoryInfomationKind::App));
  EXPECT_EQ(category->urls.size(), 1U);
  EXPECT_EQ(category->featureInfo.get(), feature.get());
  EXPECT_EQ(category->levelInt, 4);
  EXPECT_TRUE(category->needRemoveCategory);
  EXPECT_FALSE(category->childrenCateogry.has_value());
}

}  // namespace
}  // namespace sorrel
