#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <utility>

#include "Tests/Platform/PropertyLists/PropertyListKit.hpp"
#include "Tests/Support/PropertyListBytes.hpp"

namespace sorrel::test {
namespace {

TEST(WritePropertyList, writesXMLAsOthersDo) {
  EXPECT_EQ(writePropertyListXML(everyKind()), std::string(kForeignXML));
}

TEST(WritePropertyList, comesBackFromEveryForm) {
  PropertyList list = everyKind();
  EXPECT_EQ(parsePropertyList(*writePropertyListXML(list)), list);
  list.asDictionary()->set("uid", PropertyList::UID{70000});
  list.asDictionary()->set("nul", std::string("a\0b", 3));
  list.asDictionary()->set("aeons", Date{1e15});
  list.asDictionary()->set("nan", std::nan(""));
  EXPECT_EQ(parsePropertyList(*writePropertyListBinary(list)), list);
}

TEST(WritePropertyList, binaryKeepsTheOrderOfKeys) {
  const auto list = parsePropertyList(*writePropertyListBinary(PropertyListDictionary{{"z", 1}, {"a", 1}}));
  EXPECT_EQ(list->asDictionary()->begin()->key, "z");
}

TEST(WritePropertyList, binaryOfAnotherWriterComesBackByteForByte) {
  // The other writer uses the same order of objects and the same widths.
  const std::string bytes = bytesOfHex(
      "62706c6973743030d10102517581012c080b0d000000000000010100000000000000"
      "0300000000000000000000000000000010");
  EXPECT_EQ(writePropertyListBinary(*parsePropertyList(bytes)), bytes);
}

TEST(WritePropertyList, datesKeepTheirFractionInBinary) {
  const PropertyList date = PropertyList::dateSince2001(716903296.12345678);
  EXPECT_EQ(parsePropertyList(*writePropertyListBinary(date))->asSecondsSince2001(), 716903296.12345678);
  EXPECT_EQ(parsePropertyList(*writePropertyListXML(date))->asSecondsSince2001(), 716903296.0);
}

TEST(WritePropertyList, manyObjectsWidenTheReferences) {
  PropertyList::Array values;
  for (int i = 0; i < 70'000; ++i) values.emplace_back(i);
  const PropertyList list(std::move(values));
  EXPECT_EQ(parsePropertyList(*writePropertyListBinary(list)), list);
}

TEST(WritePropertyList, xmlTellsAUIDAsADictionary) {
  EXPECT_EQ(parsePropertyList(*writePropertyListXML(PropertyList::UID{7})),
            PropertyList(PropertyListDictionary{{"CF$UID", 7}}));
}

TEST(WritePropertyList, refusesWhatTheFormCannotHold) {
  EXPECT_FALSE(writePropertyListXML("\xFF").has_value());
  EXPECT_FALSE(writePropertyListBinary("\xFF").has_value());
  EXPECT_FALSE(writePropertyListXML(std::string("a\0b", 3)).has_value());
  EXPECT_FALSE(writePropertyListXML(PropertyListDictionary{{"\xFF", 1}}).has_value());
  EXPECT_FALSE(writePropertyListBinary(PropertyListDictionary{{"\xFF", 1}}).has_value());
  EXPECT_FALSE(writePropertyListXML(Date{253402300800}).has_value());
  EXPECT_FALSE(writePropertyListXML(Date{std::nan("")}).has_value());
  EXPECT_FALSE(writePropertyListXML(nestedArrays(500'000)).has_value());
  EXPECT_FALSE(writePropertyListBinary(nestedArrays(500'000)).has_value());
  EXPECT_TRUE(writePropertyListXML(nestedArrays(kPropertyListDepthLimit)).has_value());
}

}  // namespace
}  // namespace sorrel::test
