#include "SorrelFramework/Scan/Duplicate/DuplicateCategories.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/ScanKit.hpp"

namespace sorrel {
namespace {

using Kinds = std::set<Integer>;

/// The kinds of a file of that name.
Kinds kindsOfFile(const std::string& name) {
  const test::ScanVolume volume;
  const auto file = makeRef<FileInformation>(NSControlStateValueOff, 0, 0, "", Image(), 1, Date(),
                                             URL::fileURL(volume.file(name, "x"), false), "", true, false,
                                             std::any{}, Children<FileInformation>{}, nullptr, 1, 0);
  const auto kinds = DuplicateScanService::sortFile(*file);
  return {kinds.begin(), kinds.end()};
}

class DuplicateRepair : public testing::Test {
 protected:
  DuplicateRepair() {
    DuplicateScanService::childrenCateogryDict = {{0, "File"},   {1, "Folder"},  {2, "Document"},
                                                  {3, "Media"},  {4, "Picture"}, {5, "Other"},
                                                  {6, "Archive"}};
    feature = test::makeFeature(7, {{CategoryInfomationKind::Common, {}}});
  }
  ~DuplicateRepair() override { DuplicateScanService::childrenCateogryDict.clear(); }

  [[nodiscard]] CategoryInformation& all() const { return feature->categoryInfo[0]; }

  Ref<FileInformation> record(const std::string& name, std::int64_t size, FilesKind kind) {
    return makeRef<FileInformation>(NSControlStateValueOff, 9, 9, name, Image(), size, Date(),
                                    URL::fileURL("/none/" + name, false), "", true, false, std::any{},
                                    Children<FileInformation>{}, feature->categoryInfo.ref(0), rawValue(kind),
                                    0);
  }
  /// A group of `count` members of 10 bytes.
  FileInformation& addGroup(int count, FilesKind kind = FilesKind::File) {
    const auto header = record("header", std::int64_t{10} * count, kind);
    for (int i = 0; i < count; ++i) header->childrens.push_back(record(std::to_string(i), 10, kind));
    all().childrens.push_back(header);
    return *header;
  }
  static void tick(FileInformation& header, std::size_t index, DeleteStatus status) {
    header.childrens[index].state = NSControlStateValueOn;
    header.childrens[index].deleteStatus = rawValue(status);
    header.childrens[index].deleteErrorDesc = "no " + header.childrens[index].title;
    const auto ticked = std::ranges::count_if(header.childrens, [](const FileInformation& member) {
      return member.state == NSControlStateValueOn;
    });
    header.state = static_cast<std::size_t>(ticked) == header.childrens.size() ? NSControlStateValueOn
                                                                               : NSControlStateValueMixed;
  }
  void repair() { std::tie(deleted, failures, texts) = DuplicateScanService::sortCategory(all()); }
  void expectNumberedAndUnticked() const {
    Integer number = 0;
    for (const FileInformation& header : all().childrens) {
      EXPECT_EQ(header.finderID, number);
      EXPECT_EQ(header.state, NSControlStateValueOff);
      Integer index = 0;
      std::int64_t size = 0;
      for (const FileInformation& member : header.childrens) {
        EXPECT_EQ(member.parentFinderID, number);
        EXPECT_EQ(member.finderID, index++);
        EXPECT_EQ(member.state, NSControlStateValueOff);
        size += member.size;
      }
      EXPECT_EQ(header.size, size);
      ++number;
    }
  }

  Ref<FeatureInformation> feature;
  std::int64_t deleted = -1;
  FileRecords failures;
  std::string texts;
};

TEST(DuplicateSortFile, pictureIsAFileAndAPicture) { EXPECT_EQ(kindsOfFile("a.jpg"), (Kinds{0, 4})); }
TEST(DuplicateSortFile, movieIsMedia) { EXPECT_TRUE(kindsOfFile("a.mp4").contains(3)); }
TEST(DuplicateSortFile, archiveIsAnArchive) { EXPECT_TRUE(kindsOfFile("a.zip").contains(6)); }
TEST(DuplicateSortFile, documentIsADocument) { EXPECT_TRUE(kindsOfFile("a.docx").contains(2)); }
TEST(DuplicateSortFile, diskImageIsNoPicture) { EXPECT_FALSE(kindsOfFile("a.dmg").contains(4)); }
TEST(DuplicateSortFile, unknownTypeIsOther) { EXPECT_EQ(kindsOfFile("a.unheard"), (Kinds{0, 5})); }

TEST(DuplicateSortFile, fileWithoutMetadataStandsInFileAlone) {
  const auto file = makeRef<FileInformation>(NSControlStateValueOff, 0, 0, "", Image(), 1, Date(),
                                             URL::fileURL("/none/a.jpg", false), "", true, false, std::any{},
                                             Children<FileInformation>{}, nullptr, 1, 0);
  EXPECT_EQ(DuplicateScanService::sortFile(*file), std::vector<Integer>{0});
}

TEST(DuplicateMembers, areReadWithSevenKeys) {
  int count = 0;
  for (const ResourceKey key :
       {NSURLLocalizedNameKey, NSURLFileSizeKey, NSURLEffectiveIconKey, NSURLIsDirectoryKey,
        NSURLIsPackageKey, NSURLContentModificationDateKey, NSURLLocalizedTypeDescriptionKey}) {
    EXPECT_TRUE(kMemberKeys.contains(key)) << count;
    ++count;
  }
  EXPECT_FALSE(kMemberKeys.contains(NSURLCreationDateKey));
  EXPECT_FALSE(kMemberKeys.contains(NSURLIsRegularFileKey));
}

TEST_F(DuplicateRepair, groupOfThreeLosesItsTickedMember) {
  FileInformation& header = addGroup(3);
  tick(header, 1, DeleteStatus::DeleteSuccess);
  repair();
  EXPECT_EQ(deleted, 10);
  ASSERT_EQ(all().childrens.size(), 1U);
  EXPECT_EQ(header.childrens.size(), 2U);
  EXPECT_EQ(header.childrens[0].title, "0");
  EXPECT_EQ(header.childrens[1].title, "2");
  EXPECT_EQ(all().size, 20);
  expectNumberedAndUnticked();
}

TEST_F(DuplicateRepair, groupThatIsLeftWithOneMemberGoes) {
  tick(addGroup(2), 0, DeleteStatus::DeleteSuccess);
  addGroup(2);
  repair();
  EXPECT_EQ(deleted, 10);
  EXPECT_EQ(all().childrens.size(), 1U);
  expectNumberedAndUnticked();
}

TEST_F(DuplicateRepair, groupThatWasDeletedAsAWholeGoesAndCountsAllItsMembers) {
  FileInformation& header = addGroup(3);
  for (std::size_t i = 0; i < 3; ++i) tick(header, i, DeleteStatus::DeleteSuccess);
  repair();
  EXPECT_EQ(deleted, 30);
  EXPECT_TRUE(all().childrens.empty());
  EXPECT_EQ(all().size, 0);
  EXPECT_EQ(texts, "");
}

TEST_F(DuplicateRepair, membersThatAreOffCountForNothingInAGroupThatIsOn) {
  FileInformation& header = addGroup(3);
  tick(header, 0, DeleteStatus::DeleteSuccess);
  header.childrens[1].deleteStatus = rawValue(DeleteStatus::DeleteSuccess);
  header.childrens[2].deleteStatus = rawValue(DeleteStatus::DeleteError);
  header.state = NSControlStateValueOn;
  repair();
  EXPECT_EQ(deleted, 10);
  EXPECT_TRUE(failures.empty());
  EXPECT_TRUE(all().childrens.empty());
}

TEST_F(DuplicateRepair, wholeGroupThatPartlyFailedKeepsAllItsMembers) {
  FileInformation& header = addGroup(3);
  const Ref<FileInformation> group = all().childrens.ref(0);
  tick(header, 0, DeleteStatus::DeleteSuccess);
  tick(header, 1, DeleteStatus::DeleteError);
  tick(header, 2, DeleteStatus::DeleteSuccess);
  repair();
  EXPECT_EQ(deleted, 20);
  ASSERT_EQ(failures.size(), 1U);
  EXPECT_EQ(failures[0]->title, "1");
  EXPECT_EQ(texts, "no 1\n");
  ASSERT_EQ(all().childrens.size(), 1U);
  EXPECT_EQ(all().childrens.ref(0), group);
  EXPECT_EQ(header.childrens.size(), 3U);
  expectNumberedAndUnticked();
}

TEST_F(DuplicateRepair, failedMemberOfAMixedGroupStaysWithOneLineOfText) {
  FileInformation& header = addGroup(4);
  tick(header, 0, DeleteStatus::DeleteSuccess);
  tick(header, 2, DeleteStatus::DeleteError);
  tick(header, 3, DeleteStatus::Deleteing);
  header.state = NSControlStateValueMixed;
  repair();
  EXPECT_EQ(deleted, 10);
  EXPECT_EQ(failures.size(), 2U);
  EXPECT_EQ(texts, "no 2\nno 3\n");
  EXPECT_EQ(header.childrens.size(), 3U);
  expectNumberedAndUnticked();
}

TEST_F(DuplicateRepair, groupThatIsOffIsNotLookedInto) {
  FileInformation& header = addGroup(2);
  tick(header, 0, DeleteStatus::DeleteSuccess);
  header.state = NSControlStateValueOff;
  repair();
  EXPECT_EQ(deleted, 0);
  EXPECT_EQ(header.childrens.size(), 2U);
}

TEST_F(DuplicateRepair, rowsAreMadeAnewWithTheirParent) {
  resetChildCategories(all(), DuplicateScanService::childrenCateogryDict);
  const Ref<CategoryInformation> old = all().childrenCateogry->ref(0);
  addGroup(2);
  addGroup(3, FilesKind::Folder);
  repair();
  ASSERT_EQ(all().childrenCateogry->size(), 7U);
  EXPECT_NE(&(*all().childrenCateogry)[0], old.get());
  const auto sizeOf = [this](std::size_t row) { return (*all().childrenCateogry)[row].size; };
  EXPECT_EQ(sizeOf(0), 20);
  EXPECT_EQ(sizeOf(1), 30);
  EXPECT_EQ(sizeOf(5), 30);
  EXPECT_EQ(all().size, 50);
  for (const CategoryInformation& row : *all().childrenCateogry) {
    EXPECT_EQ(row.parentCategory.get(), &all());
    EXPECT_EQ(row.featureInfo.get(), feature.get());
  }
}

TEST_F(DuplicateRepair, sizeOfAllIsCountedAnew) {
  all().size = 1000;
  addGroup(2);
  repair();
  EXPECT_EQ(all().size, 20);
  repair();
  EXPECT_EQ(all().size, 20);
}

TEST_F(DuplicateRepair, groupStandsUnderTheKindsOfItsFirstMember) {
  const test::ScanVolume volume;
  FileInformation& header = addGroup(2);
  header.childrens[0].url = URL::fileURL(volume.file("a.png", "x"), false);
  header.childrens[1].url = URL::fileURL(volume.file("b.zip", "x"), false);
  addGroup(0);
  repair();
  const auto countOf = [this](std::size_t row) { return (*all().childrenCateogry)[row].childrens.size(); };
  EXPECT_EQ(countOf(0), 2U);  // also the group without members
  EXPECT_EQ(countOf(4), 1U);
  EXPECT_EQ(countOf(6), 0U);
}

TEST_F(DuplicateRepair, kindWithoutATitleIsAFatalStop) {
  addGroup(2, FilesKind::Folder);
  DuplicateScanService::childrenCateogryDict.erase(5);
  DuplicateScanService::childrenCateogryDict.erase(6);
  EXPECT_EQ(test::inChild([this] {
              repair();
              return std::string("lived");
            }),
            "ended by signal 6");
}

}  // namespace
}  // namespace sorrel
