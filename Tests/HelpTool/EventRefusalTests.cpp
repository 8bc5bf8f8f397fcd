#include "SorrelFramework/HelpTool/EventRefusal.hpp"

#include <gtest/gtest.h>

namespace sorrel {
namespace {

constexpr const char* kText = "Nothing was done.";
const HelperDictionary kEmpty;

bool gives(std::int32_t id, const HelperDictionary& event, const HelperDictionary& expected) {
  return refusalOf(id, event) == expected;
}

TEST(EventRefusal, aDeleteGetsItsNumbersBack) {
  EXPECT_TRUE(
      gives(0, {{"/a", HelperDictionary{{"0", 7}, {"1", -8}}}, {"/b", kEmpty}},
            {{"/a", HelperDictionary{{"0", 7}, {"1", -8}, {"DeleteStatus", 2}, {"DeleteDesc", kText}}},
             {"/b", HelperDictionary{{"DeleteStatus", 2}, {"DeleteDesc", kText}}}}));
}

TEST(EventRefusal, aShredNamesItsPaths) {
  EXPECT_TRUE(
      gives(1, {{"/a\xff", kEmpty}},
            {{"/a\xff", HelperDictionary{{"Path", "/a\xff"}, {"DeleteStatus", 4}, {"DeleteDesc", kText}}}}));
}

TEST(EventRefusal, cleanAndMoveListPathsUnderThemselves) {
  EXPECT_TRUE(gives(2, {{"OperationValue", 2}, {"/a", kEmpty}},
                    {{"/a", HelperDictionary{{"DeleteStatus", 2}, {"DeleteDesc", kText}}}}));
  EXPECT_TRUE(gives(2, {{"OperationValue", 3}, {"/a", HelperDictionary{{"ToPath", "/b"}}}},
                    {{"/a", HelperDictionary{{"DeleteStatus", 5}, {"DeleteDesc", kText}}}}));
}

TEST(EventRefusal, whatNamesNoPathsHasNoEntries) {
  for (const int operation : {0, 1, 4}) EXPECT_TRUE(gives(2, {{"OperationValue", operation}}, kEmpty));
  EXPECT_TRUE(gives(2, {{"/a", kEmpty}}, kEmpty));
  EXPECT_TRUE(gives(2, {{"OperationValue", "2"}, {"/a", kEmpty}}, kEmpty));
  EXPECT_TRUE(gives(3, kEmpty, kEmpty));
  EXPECT_TRUE(gives(9, {{"/a", kEmpty}}, kEmpty));
}

/// What `reply` becomes on its way to the sender of an event.
HelperDictionary completed(std::int32_t id, const HelperDictionary& event, bool flag,
                           const std::optional<HelperDictionary>& reply) {
  HelperDictionary got{{"not called", 0}};
  completingReply(id, event, [&](bool, std::int32_t, const std::optional<HelperDictionary>& dictionary) {
    got = dictionary.value_or(HelperDictionary{{"none", 0}});
  })(flag, 0, reply);
  return got;
}

TEST(EventRefusal, aFailedCleanThatNamesNoPathsNamesAll) {
  const HelperDictionary event{{"OperationValue", 2}, {"/a", kEmpty}, {"/b", kEmpty}};
  EXPECT_TRUE(completed(2, event, false, kEmpty) == refusalOf(2, event));
  EXPECT_TRUE(completed(2, event, false, std::nullopt) == refusalOf(2, event));
}

TEST(EventRefusal, everyOtherReplyStaysAsItIs) {
  const HelperDictionary clean{{"OperationValue", 2}, {"/a", kEmpty}};
  const HelperDictionary named{{"/a", kEmpty}};
  EXPECT_TRUE(completed(2, clean, true, kEmpty).empty());
  EXPECT_TRUE(completed(2, clean, false, named) == named);
  EXPECT_TRUE(completed(0, named, false, kEmpty).empty());
  EXPECT_TRUE(completed(1, named, false, kEmpty).empty());
  EXPECT_TRUE(completed(2, {{"OperationValue", 1}}, false, std::nullopt).contains("none"));
}

}  // namespace
}  // namespace sorrel
