#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <string>
#include <utility>

#include "SorrelFramework/Platform/Files/FileBytes.hpp"
#include "Tests/Platform/PropertyLists/PropertyListKit.hpp"
#include "Tests/Support/PropertyListBytes.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::test {
namespace {

using Type = PropertyList::Type;

TEST(PropertyList, isAnEmptyDictionaryAtFirst) {
  EXPECT_EQ(PropertyList().type(), Type::Dictionary);
  EXPECT_TRUE(PropertyList().asDictionary()->empty());
}

TEST(PropertyList, readersGiveNothingForAnotherKind) {
  const PropertyList text("5");
  EXPECT_FALSE(text.asBoolean().has_value());
  EXPECT_FALSE(text.asInteger().has_value());
  EXPECT_FALSE(text.asReal().has_value());
  EXPECT_FALSE(text.asDate().has_value());
  EXPECT_FALSE(text.asUID().has_value());
  EXPECT_EQ(text.asData(), nullptr);
  EXPECT_EQ(text.asArray(), nullptr);
  EXPECT_EQ(text.asDictionary(), nullptr);
  EXPECT_EQ(text.find("5"), nullptr);
  EXPECT_EQ(PropertyList(5).asString(), nullptr);
}

TEST(PropertyList, booleansAndWholeRealsCountAsIntegers) {
  EXPECT_EQ(PropertyList(true).asInteger(), 1);
  EXPECT_EQ(PropertyList(false).asInteger(), 0);
  EXPECT_EQ(PropertyList(-7.0).asInteger(), -7);
  EXPECT_FALSE(PropertyList(7.5).asInteger().has_value());
  EXPECT_FALSE(PropertyList(9223372036854775808.0).asInteger().has_value());
  EXPECT_EQ(PropertyList(-9223372036854775808.0).asInteger(), std::numeric_limits<std::int64_t>::min());
  EXPECT_FALSE(PropertyList(std::nan("")).asInteger().has_value());
  EXPECT_FALSE(PropertyList(std::numeric_limits<double>::infinity()).asInteger().has_value());
}

TEST(PropertyList, onlyZeroAndOneCountAsBooleans) {
  EXPECT_EQ(PropertyList(1).asBoolean(), true);
  EXPECT_EQ(PropertyList(0.0).asBoolean(), false);
  EXPECT_FALSE(PropertyList(2).asBoolean().has_value());
}

TEST(PropertyList, everyNumberCountsAsReal) {
  EXPECT_EQ(PropertyList(3).asReal(), 3.0);
  EXPECT_EQ(PropertyList(true).asReal(), 1.0);
  EXPECT_EQ(PropertyList(std::numeric_limits<std::uint64_t>::max()).asReal(), 18446744073709551616.0);
}

TEST(PropertyList, unsignedAboveTheSignedRangeIsNoInteger) {
  const PropertyList big(std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(big.type(), Type::Integer);
  EXPECT_FALSE(big.asInteger().has_value());
  EXPECT_EQ(big.asUnsigned(), std::numeric_limits<std::uint64_t>::max());
  EXPECT_FALSE(PropertyList(-1).asUnsigned().has_value());
}

TEST(PropertyList, findReachesTypedValues) {
  PropertyList list = PropertyListDictionary{{"text", "t"}, {"array", PropertyList::Array{1}}, {"number", 1}};
  EXPECT_EQ(*list.findString("text"), "t");
  EXPECT_EQ(list.findString("number"), nullptr);
  EXPECT_EQ(list.findArray("absent"), nullptr);
  list.findArray("array")->clear();
  EXPECT_TRUE(list.find("array")->asArray()->empty());
}

TEST(PropertyList, aChildCanTakeItsParentsPlace) {
  PropertyList list = PropertyListDictionary{{"a", PropertyList::Array{"inner"}}};
  list = std::move(*list.find("a"));
  EXPECT_EQ(list, PropertyList(PropertyList::Array{"inner"}));
  list = PropertyList((*list.asArray())[0]);
  EXPECT_EQ(*list.asString(), "inner");
}

TEST(PropertyList, copiesAreIndependent) {
  PropertyList list = everyKind();
  const PropertyList copy = list;
  EXPECT_EQ(copy, list);
  list.findArray("zeta")->clear();
  EXPECT_NE(copy, list);
  EXPECT_EQ(copy, everyKind());
}

TEST(PropertyList, deepTreesAreCopiedComparedAndFreed) {
  const PropertyList deep = nestedArrays(500'000);
  const PropertyList copy = deep;  // NOLINT(performance-unnecessary-copy-initialization): what is tested
  EXPECT_TRUE(copy == deep);
  EXPECT_FALSE(copy == nestedArrays(499'999));
}

TEST(PropertyList, kindsOfNumbersDiffer) {
  EXPECT_FALSE(PropertyList(1) == PropertyList(true));
  EXPECT_FALSE(PropertyList(1) == PropertyList(1.0));
  EXPECT_TRUE(PropertyList(std::nan("")) == PropertyList(std::nan("")));
}

TEST(PropertyListDictionary, keepsTheOrderAndThePlaceOfAReplacedKey) {
  PropertyListDictionary dictionary{{"b", 1}, {"a", 2}, {"b", 3}};
  ASSERT_EQ(dictionary.size(), 2U);
  EXPECT_EQ(dictionary.begin()->key, "b");
  EXPECT_EQ(dictionary.begin()->value.asInteger(), 3);
}

TEST(PropertyListDictionary, findsAndErasesAmongManyKeys) {
  PropertyListDictionary dictionary;
  for (int i = 0; i < 1000; ++i) dictionary.set(std::to_string(i), i);
  EXPECT_TRUE(dictionary.erase("10"));
  EXPECT_FALSE(dictionary.erase("10"));
  const PropertyListDictionary copy = dictionary;
  EXPECT_EQ(copy.size(), 999U);
  EXPECT_EQ(copy.find("10"), nullptr);
  for (int i = 11; i < 1000; ++i) ASSERT_EQ(copy.find(std::to_string(i))->asInteger(), i);
}

TEST(PropertyListDictionary, orderDoesNotCountForEquality) {
  EXPECT_EQ(PropertyList(PropertyListDictionary{{"a", 1}, {"b", 2}}),
            PropertyList(PropertyListDictionary{{"b", 2}, {"a", 1}}));
  EXPECT_NE(PropertyList(PropertyListDictionary{{"a", 1}}), PropertyList(PropertyListDictionary{{"b", 1}}));
}

TEST(ParsePropertyList, readsBinaryOfAnotherWriter) {
  const auto list = parsePropertyList(bytesOfHex(kForeignBinary));
  ASSERT_TRUE(list.has_value());
  EXPECT_EQ(*list, everyKind());
  EXPECT_EQ(list->asDictionary()->begin()->key, "zeta");
}

TEST(ParsePropertyList, readsXMLOfAnotherWriter) {
  const auto list = parsePropertyList(kForeignXML);
  ASSERT_TRUE(list.has_value());
  EXPECT_EQ(*list, everyKind());
  EXPECT_EQ(list->asDictionary()->begin()->key, "Grüße");
}

TEST(ParsePropertyList, nothingForNoBytes) { EXPECT_FALSE(parsePropertyList("").has_value()); }

TEST(ParsePropertyList, keepsTheOrderOfTheFile) {
  const auto list = parseElement("<dict><key>z</key><true/><key>a</key><true/><key>m</key><true/></dict>");
  std::string order;
  for (const auto& entry : *list->asDictionary()) order += entry.key;
  EXPECT_EQ(order, "zam");
}

TEST(ParsePropertyList, lastOfEqualKeysWinsAtTheFirstPlace) {
  const std::string text =
      "<dict><key>a</key><integer>1</integer><key>b</key><true/><key>a</key>"
      "<integer>2</integer></dict>";
  const auto list = parseElement(text);
  ASSERT_EQ(list->asDictionary()->size(), 2U);
  EXPECT_EQ(list->asDictionary()->begin()->value.asInteger(), 2);
}

TEST(ParsePropertyList, holdsTheByteLimit) {
  std::string text = xml("<true/>");
  text.resize(kPropertyListByteLimit, ' ');
  EXPECT_TRUE(parsePropertyList(text).has_value());
  EXPECT_FALSE(parsePropertyList(text + " ").has_value());
}

TEST(PropertyListFile, roundTripsInBothFormats) {
  const TemporaryFolder folder;
  const std::string path = folder.path("list.plist");
  for (const PropertyListFormat format : {PropertyListFormat::XML, PropertyListFormat::Binary}) {
    EXPECT_TRUE(writePropertyListFile(path, everyKind(), format));
    EXPECT_EQ(readPropertyListFile(path), everyKind());
  }
}

TEST(PropertyListFile, nothingWithoutARegularFile) {
  const TemporaryFolder folder;
  EXPECT_FALSE(readPropertyListFile(folder.path("absent")).has_value());
  EXPECT_FALSE(readPropertyListFile(folder.path()).has_value());
  ASSERT_EQ(::mkfifo(folder.path("fifo").c_str(), 0600), 0);
  EXPECT_FALSE(readPropertyListFile(folder.path("fifo")).has_value());
}

TEST(PropertyListFile, readsThroughALink) {
  const TemporaryFolder folder;
  std::filesystem::create_symlink(folder.file("real", "{a = b;}"), folder.path("link"));
  EXPECT_EQ(readPropertyListFile(folder.path("link")), PropertyList(PropertyListDictionary{{"a", "b"}}));
}

TEST(PropertyListFile, aListThatCannotBeWrittenLeavesTheOldFile) {
  const TemporaryFolder folder;
  const std::string path = folder.file("list.plist", "old");
  EXPECT_FALSE(writePropertyListFile(path, "\xFF"));
  EXPECT_EQ(readFileBytes(path, 100), "old");
}

}  // namespace
}  // namespace sorrel::test
