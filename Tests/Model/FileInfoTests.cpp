#include "SorrelFramework/Model/FileInfo.hpp"

#include <gtest/gtest.h>

#include <any>
#include <map>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/ModuleInfo.hpp"

namespace sorrel {
namespace {

using RecordSet = std::unordered_set<Ref<FileInformation>, RecordHash, RecordEqual>;

Ref<FileInformation> makeFile(Integer finderID = 1, Integer parentFinderID = 2, std::int64_t size = 3,
                              const URL& url = URL::fileURL("/a/b", false)) {
  return makeRef<FileInformation>(NSControlStateValueOff, finderID, parentFinderID, "b", Image(), size,
                                  Date{10}, url, "dropped", true, false, std::any(),
                                  Children<FileInformation>(), Ref<CategoryInformation>(),
                                  rawValue(FilesKind::File), 0);
}

Ref<CategoryInformation> makeCategory() {
  const auto module = makeRef<ModuleInformation>(1, "", "", Image(), "", "", Children<FeatureInformation>());
  const auto feature =
      makeRef<FeatureInformation>(1, 0, Image(), "", "", Children<CategoryInformation>(), module, std::any());
  return makeRef<CategoryInformation>(0, 5, "", Image(), 0, "", 1, std::vector<URL>(),
                                      Children<FileInformation>(), feature, std::any(), 0, false);
}

TEST(FileInformation, constructorFillsEachField) {
  const auto category = makeCategory();
  const auto folder = makeFile(40);
  const auto child = makeFile(41);
  const auto file = makeRef<FileInformation>(
      NSControlStateValueMixed, 11, 12, "title", Image::named("icon"), std::int64_t{1} << 40, Date{13.5},
      URL::fileURL("/x", false), "dropped", true, true, std::any(14), Children<FileInformation>{child},
      category, rawValue(FilesKind::Package), 15, folder);

  EXPECT_EQ(file->state, -1);
  EXPECT_EQ(file->finderID, 11);
  EXPECT_EQ(file->parentFinderID, 12);
  EXPECT_EQ(file->title, "title");
  EXPECT_EQ(file->icon, Image::named("icon"));
  EXPECT_EQ(file->size, 1'099'511'627'776);
  EXPECT_EQ(file->date, Date{13.5});
  EXPECT_EQ(file->url, URL::fileURL("/x", false));
  EXPECT_TRUE(file->canDelete);
  EXPECT_TRUE(file->removeCategory);
  EXPECT_EQ(std::any_cast<int>(file->attachInformation), 14);
  ASSERT_EQ(file->childrens.size(), 1U);
  EXPECT_EQ(&file->childrens[0], child.get());
  EXPECT_EQ(file->parentCategoryInfo.get(), category.get());
  EXPECT_EQ(file->fileKind, 2);
  EXPECT_EQ(file->levelInt, 15);
  EXPECT_EQ(file->parentFileInfo.get(), folder.get());
}

TEST(FileInformation, canDeleteAndRemoveCategoryAreNotMixedUp) {
  const auto make = [](bool canDelete, bool removeCategory) {
    return makeRef<FileInformation>(0, 0, 0, "", Image(), 0, Date(), URL(), "", canDelete, removeCategory,
                                    std::any(), Children<FileInformation>(), Ref<CategoryInformation>(), 0,
                                    0);
  };
  EXPECT_TRUE(make(true, false)->canDelete);
  EXPECT_FALSE(make(true, false)->removeCategory);
  EXPECT_FALSE(make(false, true)->canDelete);
  EXPECT_TRUE(make(false, true)->removeCategory);
}

TEST(FileInformation, startsUndeletedAndWithoutAParentRecord) {
  const auto file = makeFile();
  EXPECT_EQ(file->deleteStatus, rawValue(DeleteStatus::None));
  EXPECT_EQ(file->deleteErrorDesc, "");
  EXPECT_FALSE(file->parentFileInfo);
  EXPECT_FALSE(file->parentCategoryInfo);
  EXPECT_FALSE(file->attachInformation.has_value());
}

template <class Record>
concept HasDescription = requires(Record& record) {
  record.description;
};

TEST(FileInformation, dropsTheDescription) {
  EXPECT_FALSE(HasDescription<FileInformation>);
  EXPECT_TRUE(HasDescription<CategoryInformation>);
}

TEST(FileInformation, hashValueStringNamesIdentitySizeAndLocation) {
  EXPECT_EQ(makeFile(1, 2, 3, URL::fileURL("/a/b c", false))->hashValueString, "1:2:3:file:///a/b%20c");
}

TEST(FileInformation, hashValueStringKeepsTheSlashOfAFolder) {
  EXPECT_EQ(makeFile(-1, 0, 0, URL::fileURL("/a", true))->hashValueString, "-1:0:0:file:///a/");
}

TEST(FileInformation, hashValueStringHoldsTheAbsoluteFormOfTheEmptyPath) {
  const URL here;
  EXPECT_EQ(makeFile(0, 0, 0, here)->hashValueString, "0:0:0:" + here.absoluteString());
}

TEST(FileInformation, sizeChangeLeavesHashValueStringStale) {
  const auto file = makeFile();
  file->size = 99;
  EXPECT_EQ(file->hashValueString, "1:2:3:file:///a/b");
}

TEST(FileInformation, noFieldButFinderIDRefreshesHashValueString) {
  const auto file = makeFile();
  file->parentFinderID = 77;
  file->size = 99;
  file->url = URL::fileURL("/c", false);
  file->title = "other";
  file->state = NSControlStateValueOn;
  file->parentCategoryInfo = makeCategory();
  file->childrens.push_back(makeFile());
  EXPECT_EQ(file->hashValueString, "1:2:3:file:///a/b");
}

TEST(FileInformation, assignmentOfFinderIDTakesThePresentValues) {
  const auto file = makeFile();
  file->parentFinderID = 77;
  file->size = 99;
  file->url = URL::fileURL("/c", false);
  file->finderID = 8;
  EXPECT_EQ(file->hashValueString, "8:77:99:file:///c");
}

TEST(FileInformation, assignmentOfTheSameFinderIDRefreshesToo) {
  const auto file = makeFile();
  file->parentFinderID = 77;
  file->size = 99;
  file->url = URL::fileURL("/c", false);
  file->finderID = 1;
  EXPECT_EQ(file->hashValueString, "1:77:99:file:///c");
}

TEST(FileInformation, hashValueStringAssignedByTheApplicationStaysUntilFinderIDIsSet) {
  const auto file = makeFile();
  file->hashValueString = "own text";
  file->size = 4;
  EXPECT_EQ(file->hashValueString, "own text");
  file->finderID = 1;
  EXPECT_EQ(file->hashValueString, "1:2:4:file:///a/b");
}

TEST(FileInformation, hashValueStringIsCopiedAsItStands) {
  const auto file = makeFile();
  const auto other = makeFile(9);
  const auto before = file->hashValueString;
  other->hashValueString = file->hashValueString;
  file->size = 4;
  file->finderID = 1;
  EXPECT_EQ(before, "1:2:3:file:///a/b");
  EXPECT_EQ(other->hashValueString, "1:2:3:file:///a/b");
  file->hashValueString = "own text";
  other->hashValueString = file->hashValueString;
  file->finderID = 1;
  EXPECT_EQ(other->hashValueString, "own text");
}

TEST(FileInformation, equalityComparesTheFourIdentityFields) {
  EXPECT_EQ(*makeFile(), *makeFile());
  EXPECT_FALSE(*makeFile(9) == *makeFile());
  EXPECT_FALSE(*makeFile(1, 9) == *makeFile());
  EXPECT_FALSE(*makeFile(1, 2, 9) == *makeFile());
  EXPECT_FALSE(*makeFile(1, 2, 3, URL::fileURL("/a/b", true)) == *makeFile());
}

TEST(FileInformation, equalityLooksAtNoOtherField) {
  const auto a = makeFile();
  const auto b = makeFile();
  b->state = NSControlStateValueOn;
  b->title = "other";
  b->icon = Image::named("other");
  b->date = Date{99};
  b->canDelete = false;
  b->removeCategory = true;
  b->hashValueString = "other";
  b->attachInformation = 1;
  b->childrens.push_back(makeFile());
  b->parentCategoryInfo = makeCategory();
  b->fileKind = rawValue(FilesKind::Folder);
  b->levelInt = 4;
  b->parentFileInfo = makeFile();
  b->deleteStatus = rawValue(DeleteStatus::DeleteError);
  b->deleteErrorDesc = "other";
  EXPECT_EQ(*a, *b);
  EXPECT_EQ(std::hash<FileInformation>()(*a), std::hash<FileInformation>()(*b));
}

TEST(FileInformation, sameLocationUnderOtherIdentityIsAnotherSetMember) {
  const RecordSet set{makeFile(1), makeFile(2), makeFile(1), makeFile(1, 7)};
  EXPECT_EQ(set.size(), 3U);
}

TEST(FileInformation, sizesThatBecomeEqualMakeEqualRecordsWithDifferentTexts) {
  const auto first = makeFile(1, 2, 0);
  const auto second = makeFile(1, 2, 5);
  EXPECT_EQ((RecordSet{first, second}.size()), 2U);
  first->size = 5;
  EXPECT_EQ(*first, *second);
  EXPECT_EQ(RecordHash()(*first), RecordHash()(*second));
  EXPECT_FALSE(first->hashValueString == second->hashValueString);
}

TEST(FileInformation, hashTellsTheFourFieldsApart) {
  const std::size_t plain = RecordHash()(*makeFile());
  EXPECT_NE(RecordHash()(*makeFile(9)), plain);
  EXPECT_NE(RecordHash()(*makeFile(1, 9)), plain);
  EXPECT_NE(RecordHash()(*makeFile(1, 2, 9)), plain);
  EXPECT_NE(RecordHash()(*makeFile(1, 2, 3, URL::fileURL("/z", false))), plain);
  EXPECT_NE(RecordHash()(*makeFile(2, 1)), plain) << "the order of the fields counts";
}

TEST(FileInformation, payloadIsReadBackWithItsExactTypeOrNotAtAll) {
  using Categories = std::map<Integer, CategoryInformation*>;
  const auto category = makeCategory();
  const auto file = makeFile();
  file->attachInformation = Categories{{1, category.get()}};

  const auto* const held = std::any_cast<Categories>(&file->attachInformation);
  ASSERT_NE(held, nullptr);
  EXPECT_EQ(held->at(1), category.get());
  EXPECT_EQ(std::any_cast<std::string>(&file->attachInformation), nullptr);
  EXPECT_EQ(std::any_cast<Integer>(&file->attachInformation), nullptr);
}

}  // namespace
}  // namespace sorrel
