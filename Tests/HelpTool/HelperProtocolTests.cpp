#include "SorrelFramework/HelpTool/HelperProtocol.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace sorrel {
namespace {

TEST(HelperProtocol, rawValuesAreThoseOfTheWire) {
  EXPECT_EQ(static_cast<int>(HelperHanldeEventID::Delete), 0);
  EXPECT_EQ(static_cast<int>(HelperHanldeEventID::Shred), 1);
  EXPECT_EQ(static_cast<int>(HelperHanldeEventID::Maintenance), 2);
  EXPECT_EQ(static_cast<int>(HelperHanldeEventID::CloseHelper), 3);
  EXPECT_EQ(static_cast<int>(HelperEventErrorID::Success), 0);
  EXPECT_EQ(static_cast<int>(HelperEventErrorID::OverTime), 1);
  EXPECT_EQ(static_cast<int>(HelperEventErrorID::DeleteError), 2);
  EXPECT_EQ(static_cast<int>(HelperEventErrorID::NoCause), 3);
  EXPECT_EQ(static_cast<int>(HelperEventErrorID::ShreadFail), 4);
  EXPECT_EQ(static_cast<int>(HelperEventErrorID::MoveFail), 5);
  EXPECT_EQ(static_cast<int>(HelperOperationID::CleanDNS), 0);
  EXPECT_EQ(static_cast<int>(HelperOperationID::RebuildSpotlight), 1);
  EXPECT_EQ(static_cast<int>(HelperOperationID::Clean), 2);
  EXPECT_EQ(static_cast<int>(HelperOperationID::Move), 3);
}

TEST(HelperProtocol, aValueIsOfOneType) {
  const HelperValue number = 7;
  ASSERT_NE(number.asNumber(), nullptr);
  EXPECT_EQ(*number.asNumber(), 7);
  EXPECT_EQ(number.asText(), nullptr);
  EXPECT_EQ(number.asDictionary(), nullptr);
  const HelperValue text = "a";
  ASSERT_NE(text.asText(), nullptr);
  EXPECT_EQ(*text.asText(), "a");
  EXPECT_EQ(text.asNumber(), nullptr);
  const HelperValue dictionary = HelperDictionary();
  ASSERT_NE(dictionary.asDictionary(), nullptr);
  EXPECT_TRUE(dictionary.asDictionary()->empty());
  EXPECT_EQ(dictionary.asText(), nullptr);
}

TEST(HelperProtocol, aStatusIsItsNumber) {
  EXPECT_EQ(HelperValue(HelperEventErrorID::MoveFail), HelperValue(5));
  EXPECT_EQ(HelperValue(), HelperValue(0));
}

TEST(HelperProtocol, aCopySharesNoDictionaryWithItsOriginal) {
  HelperValue original = HelperDictionary{{"0", 1}};
  const HelperValue copy = original;
  HelperValue assigned = "other";
  assigned = original;
  original.asDictionary()->insert_or_assign("0", 2);
  EXPECT_EQ(copy, HelperValue(HelperDictionary{{"0", 1}}));
  EXPECT_EQ(assigned, HelperValue(HelperDictionary{{"0", 1}}));
  EXPECT_EQ(original, HelperValue(HelperDictionary{{"0", 2}}));
}

TEST(HelperProtocol, aValueCanTakeWhatLiesInsideIt) {
  HelperValue value = HelperDictionary{{"inner", HelperDictionary{{"0", 1}}}};
  value = value.asDictionary()->at("inner");
  EXPECT_EQ(value, HelperValue(HelperDictionary{{"0", 1}}));
  const HelperValue& itself = value;
  value = itself;
  EXPECT_EQ(value, HelperValue(HelperDictionary{{"0", 1}}));
}

TEST(HelperProtocol, aMovedValueKeepsItsDictionary) {
  HelperValue value = HelperDictionary{{"0", 1}};
  HelperValue moved = std::move(value);
  value = 3;
  EXPECT_EQ(moved, HelperValue(HelperDictionary{{"0", 1}}));
  EXPECT_EQ(value, HelperValue(3));
}

TEST(HelperProtocol, valuesOfDifferentTypesDiffer) {
  EXPECT_FALSE(HelperValue(0) == HelperValue(""));
  EXPECT_FALSE(HelperValue("") == HelperValue(HelperDictionary()));
  EXPECT_FALSE(HelperValue(HelperDictionary()) == HelperValue(0));
  EXPECT_FALSE(HelperValue(HelperDictionary{{"a", 1}}) == HelperValue(HelperDictionary{{"a", 2}}));
  EXPECT_TRUE(HelperValue(std::string("a\0b", 3)) == HelperValue(std::string("a\0b", 3)));
}

}  // namespace
}  // namespace sorrel
