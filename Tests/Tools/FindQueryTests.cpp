#include "Tools/FindQuery.hpp"

#include <gtest/gtest.h>

#include <string>

namespace sorrel::tools {
namespace {

bool finds(const std::string& query, const FoundItem& item) {
  const auto parsed = FindQuery::parse(query);
  EXPECT_TRUE(parsed.has_value()) << query;
  return parsed && parsed->matches(item);
}

TEST(FindQuery, sizeIsThatOfFilesAndTheLimitIsExclusive) {
  for (const char* query :
       {"kMDItemFSSize > 52428800", "kMDItemFSSize>52428800", " kMDItemFSSize  >\t52428800 "}) {
    EXPECT_TRUE(finds(query, {"a", false, 52'428'801})) << query;
    EXPECT_FALSE(finds(query, {"a", false, 52'428'800})) << query;
    EXPECT_FALSE(finds(query, {"a", true, 52'428'801})) << query;
  }
  EXPECT_TRUE(finds("kMDItemFSSize > 9223372036854775806", {"a", false, INT64_MAX}));
}

TEST(FindQuery, applicationsAreFoundByTheirContentType) {
  for (const char* query : {"kMDItemContentType=com.apple.application-bundle",
                            "kMDItemContentType == 'com.apple.application-bundle'"}) {
    EXPECT_TRUE(finds(query, {"Editor.app", true, 0})) << query;
    EXPECT_FALSE(finds(query, {"Editor.app", false, 0})) << query;
    EXPECT_FALSE(finds(query, {"Editor", true, 0})) << query;
    EXPECT_FALSE(finds(query, {"app", true, 0})) << query;
  }
}

TEST(FindQuery, typeTreeFitsIfAnyTypeInItDoes) {
  for (const char* query : {"kMDItemContentTypeTree == public.image", "kMDItemContentTypeTree=*image"}) {
    for (const char* name : {"a.jpg", "a.heic", "a.heif", "a.avif", "a.webp", "a.dng", "a.svg"}) {
      EXPECT_TRUE(finds(query, {name, false, 0})) << query << name;
    }
    for (const char* name : {"a.mov", "a.pdf", "a.zip", "a", "a.heic.txt"}) {
      EXPECT_FALSE(finds(query, {name, false, 0})) << query << name;
    }
    EXPECT_FALSE(finds(query, {"a.heic", true, 0})) << query;
  }
  EXPECT_TRUE(finds("kMDItemContentTypeTree == com.apple.package", {"Editor.app", true, 0}));
  EXPECT_FALSE(finds("kMDItemContentTypeTree == public.imag", {"a.jpg", false, 0}));
}

TEST(FindQuery, kindIsMatchedWithItsLetterCase) {
  const std::string images = "kMDItemKind == *image*";
  EXPECT_TRUE(finds(images, {"a.jpg", false, 0}));
  EXPECT_TRUE(finds(images, {"a.PNG", false, 0}));
  EXPECT_FALSE(finds(images, {"a.heic", false, 0}));
  EXPECT_FALSE(finds(images, {"a.dmg", false, 0}));
  EXPECT_FALSE(finds(images, {"a.mov", false, 0}));
  EXPECT_FALSE(finds(images, {"images", true, 0}));
  const std::string libraries = "kMDItemKind == '*Photos Library*'";
  EXPECT_TRUE(finds(libraries, {"My.photoslibrary", true, 0}));
  EXPECT_FALSE(finds(libraries, {"My.photoslibrary", false, 0}));
  EXPECT_FALSE(finds(libraries, {"Photos Library", true, 0}));
}

TEST(FindQuery, namesAreMatchedAsBytes) {
  EXPECT_TRUE(finds("kMDItemFSName == *vmwarevm*", {"Debian.vmwarevm", true, 0}));
  EXPECT_TRUE(finds("kMDItemFSName == *pvm*", {"Windows.pvm", true, 0}));
  EXPECT_TRUE(finds("kMDItemFSName == *pvm*", {"\xFFpvm\n", false, 0}));
  EXPECT_FALSE(finds("kMDItemFSName == *pvm*", {"Windows.PVM", true, 0}));
  EXPECT_TRUE(finds("kMDItemFSName == 'a b'", {"a b", false, 0}));
  EXPECT_FALSE(finds("kMDItemFSName == a", {"ab", false, 0}));
}

TEST(FindQuery, onlyTheStarIsAWildcard) {
  EXPECT_FALSE(finds("kMDItemFSName == ?", {"a", false, 0}));
  EXPECT_TRUE(finds("kMDItemFSName == ?", {"?", false, 0}));
  EXPECT_FALSE(finds("kMDItemFSName == [ab]", {"a", false, 0}));
  EXPECT_TRUE(finds("kMDItemFSName == [ab]", {"[ab]", false, 0}));
  EXPECT_TRUE(finds("kMDItemFSName == \"*\"", {".hidden", false, 0}));
}

TEST(FindQuery, otherTextsAreNoQuery) {
  for (const char* text : {"",
                           " ",
                           "kMDItemFSSize",
                           "kMDItemFSSize >",
                           "kMDItemFSSize > ",
                           "kMDItemFSSize > 1x",
                           "kMDItemFSSize > 1.5",
                           "kMDItemFSSize > 9223372036854775808",
                           "kMDItemFSSize == 5",
                           "kMDItemFSSize < 5",
                           "kMDItemFSSize => 5",
                           "kMDItemFSName > a",
                           "kMDItemFSName != a",
                           "kMDItemFSName ==",
                           "kMDItemFSName == 'a",
                           "kMDItemFSName == a'",
                           "kMDItemFSName == '",
                           "kMDItemFSName == 'a' || kMDItemFSName == 'b'",
                           "kMDItemFSName == a\\*",
                           "kMDItemDisplayName == a",
                           "letter",
                           "> 5"}) {
    EXPECT_FALSE(FindQuery::parse(text).has_value()) << text;
  }
}

}  // namespace
}  // namespace sorrel::tools
