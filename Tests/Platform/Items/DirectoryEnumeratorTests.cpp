#include "SorrelFramework/Platform/Items/DirectoryEnumerator.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Tests/Platform/Items/DirectoryEnumeratorKit.hpp"

namespace sorrel::test {
namespace {

constexpr EnumerationOptions kOneLevel = NSDirectoryEnumerationSkipsSubdirectoryDescendants;
constexpr EnumerationOptions kNoPackages = NSDirectoryEnumerationSkipsPackageDescendants;
constexpr EnumerationOptions kNoHidden = NSDirectoryEnumerationSkipsHiddenFiles;

TEST_F(DirectoryEnumeratorTest, meetsParentsBeforeChildrenInTheOrderOfTheBytes) {
  for (const char* name : {"b/z", "b/a", "a", "c", "B", "b.txt", "b/\xC3\xA9", "b/\xFF"}) {
    volume_.file("top/" + std::string(name), "");
  }
  EXPECT_EQ(walk(), (Names{"B", "a", "b/", "b/a", "b/z", "b/\xC3\xA9", "b/\xFF", "b.txt", "c"}));
}

TEST_F(DirectoryEnumeratorTest, emptyFolderGivesNothing) { EXPECT_TRUE(walk().empty()); }

TEST_F(DirectoryEnumeratorTest, levelCountsFromTheChildrenOfTheRoot) {
  volume_.file("top/a/b/c", "");
  volume_.file("top/d", "");
  EXPECT_EQ(DirectoryEnumerator(volume_.url("top/")).level(), 0);
  std::vector<int> levels;
  walk(0, [&levels](DirectoryEnumerator& at, const std::string&) { levels.push_back(at.level()); });
  EXPECT_EQ(levels, (std::vector<int>{1, 2, 3, 1}));
}

TEST_F(DirectoryEnumeratorTest, itemTellsNameAndStatus) {
  volume_.file("top/a b", "12345");
  DirectoryEnumerator enumerator(volume_.url("top/"));
  const DirectoryEnumerator::Item* item = enumerator.next();
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(item->name, "a b");
  EXPECT_EQ(item->status.size, 5);
  EXPECT_TRUE(item->status.isRegularFile());
  EXPECT_EQ(item->url, URL::fileURL(volume_.path("top/a b"), false));
}

TEST_F(DirectoryEnumeratorTest, urlsAreThoseOfThePaths) {
  volume_.file("top/a folder/100%", "");
  Names texts;
  DirectoryEnumerator enumerator(volume_.url("top/"));
  while (const DirectoryEnumerator::Item* item = enumerator.next())
    texts.push_back(item->url.absoluteString());
  EXPECT_EQ(texts, (Names{volume_.url("top/a folder/").absoluteString(),
                          volume_.url("top/a folder/100%").absoluteString()}));
}

TEST_F(DirectoryEnumeratorTest, rootNeedsNoSlashAtItsEnd) {
  volume_.file("top/a/b", "");
  EXPECT_EQ(walkOf(URL::fileURL(volume_.path("top"), false)), (Names{"a/", "a/b"}));
}

TEST_F(DirectoryEnumeratorTest, valuesAreThoseOfThePresentItem) {
  volume_.file("top/a", "123");
  DirectoryEnumerator enumerator(volume_.url("top/"));
  ASSERT_NE(enumerator.next(), nullptr);
  const ResourceValues values = enumerator.values(ResourceKeys(NSURLFileSizeKey) | NSURLIsDirectoryKey);
  EXPECT_EQ(values.fileSize, 3);
  EXPECT_EQ(values.isDirectory, false);
  EXPECT_FALSE(values.localizedName);
}

// Items that a caller skips.

TEST_F(DirectoryEnumeratorTest, skipDescendantsLeavesAFolderUnentered) {
  volume_.file("top/a/inner", "");
  volume_.file("top/b/inner", "");
  const auto skipA = [](DirectoryEnumerator& at, const std::string& name) {
    if (name == "a/") at.skipDescendants();
  };
  EXPECT_EQ(walk(0, skipA), (Names{"a/", "b/", "b/inner"}));
}

TEST_F(DirectoryEnumeratorTest, skipDescendantsOnAFileMeansNothing) {
  volume_.file("top/a/one", "");
  volume_.file("top/a/two/inner", "");
  volume_.file("top/b/inner", "");
  const auto skipFile = [](DirectoryEnumerator& at, const std::string& name) {
    if (name == "a/one") at.skipDescendants();
  };
  EXPECT_EQ(walk(0, skipFile), (Names{"a/", "a/one", "a/two/", "a/two/inner", "b/", "b/inner"}));
}

TEST_F(DirectoryEnumeratorTest, skipDescendantsBeforeTheFirstItemMeansNothing) {
  volume_.file("top/a/inner", "");
  DirectoryEnumerator enumerator(volume_.url("top/"));
  enumerator.skipDescendants();
  int count = 0;
  while (enumerator.next() != nullptr) ++count;
  EXPECT_EQ(count, 2);
}

TEST_F(DirectoryEnumeratorTest, skipDescendantsOfAnEarlierItemIsForgotten) {
  volume_.file("top/a", "");
  volume_.file("top/b/inner", "");
  volume_.file("top/c/inner", "");
  const auto skipEarly = [](DirectoryEnumerator& at, const std::string& name) {
    if (name == "a" || name == "b/inner") at.skipDescendants();
  };
  EXPECT_EQ(walk(0, skipEarly), (Names{"a", "b/", "b/inner", "c/", "c/inner"}));
}

class EnumerationOptionsTest : public DirectoryEnumeratorTest {
 protected:
  EnumerationOptionsTest() {
    volume_.file("top/.hidden/inner", "");
    volume_.file("top/.file", "");
    volume_.file("top/Tool.app/Contents/Info.plist", "");
    volume_.file("top/Tool.app/.DS_Store", "");
    volume_.file("top/folder/deep/file", "");
    volume_.file("top/folder/.file", "");
  }
};

TEST_F(EnumerationOptionsTest, rawValuesAreFixed) {
  EXPECT_EQ(kOneLevel, 1U);
  EXPECT_EQ(kNoPackages, 2U);
  EXPECT_EQ(kNoHidden, 4U);
}

TEST_F(EnumerationOptionsTest, noneMeetsEverything) {
  EXPECT_EQ(walk(), (Names{".file", ".hidden/", ".hidden/inner", "Tool.app/", "Tool.app/.DS_Store",
                           "Tool.app/Contents/", "Tool.app/Contents/Info.plist", "folder/", "folder/.file",
                           "folder/deep/", "folder/deep/file"}));
}

TEST_F(EnumerationOptionsTest, oneLevelMeetsTheDirectChildren) {
  EXPECT_EQ(walk(kOneLevel), (Names{".file", ".hidden/", "Tool.app/", "folder/"}));
}

TEST_F(EnumerationOptionsTest, packagesAreMetNotEntered) {
  EXPECT_EQ(walk(kNoPackages), (Names{".file", ".hidden/", ".hidden/inner", "Tool.app/", "folder/",
                                      "folder/.file", "folder/deep/", "folder/deep/file"}));
}

TEST_F(EnumerationOptionsTest, hiddenItemsAreNeitherMetNorEntered) {
  EXPECT_EQ(walk(kNoHidden), (Names{"Tool.app/", "Tool.app/Contents/", "Tool.app/Contents/Info.plist",
                                    "folder/", "folder/deep/", "folder/deep/file"}));
}

TEST_F(EnumerationOptionsTest, optionsCombine) {
  EXPECT_EQ(walk(kNoPackages | kNoHidden),
            (Names{"Tool.app/", "folder/", "folder/deep/", "folder/deep/file"}));
  EXPECT_EQ(walk(kOneLevel | kNoHidden), (Names{"Tool.app/", "folder/"}));
  EXPECT_EQ(walk(kOneLevel | kNoPackages), walk(kOneLevel));
  EXPECT_EQ(walk(kOneLevel | kNoPackages | kNoHidden), (Names{"Tool.app/", "folder/"}));
}

TEST_F(EnumerationOptionsTest, rootIsEnteredEvenIfItIsAPackageOrHidden) {
  EXPECT_EQ(walkOf(volume_.url("top/Tool.app/"), kNoPackages),
            (Names{".DS_Store", "Contents/", "Contents/Info.plist"}));
  EXPECT_EQ(walkOf(volume_.url("top/.hidden/"), kNoHidden), Names{"inner"});
}

TEST_F(EnumerationOptionsTest, fileWithTheNameOfAPackageIsNone) {
  volume_.file("top/File.app", "");
  const Names met = walk(kNoPackages | kNoHidden);
  EXPECT_EQ(met.front(), "File.app");
}

}  // namespace
}  // namespace sorrel::test
