#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"

#include <gtest/gtest.h>

#include <string>

#include "Tests/Platform/PropertyLists/PropertyListKit.hpp"
#include "Tests/Support/PropertyListBytes.hpp"

namespace sorrel::test {
namespace {

TEST(ParsePropertyListOldStyle, readsEveryKind) {
  const auto list = parsePropertyList(
      "// a comment\n{ name = Value; \"quoted key\" = 'single'; /* two\nlines */ list = ( a, \"b c\", ); "
      "data = <0fA1 2b>; inner = { path = /usr/lib:x.y-z_$1; }; empty = \"\"; none = (); }\n");
  ASSERT_TRUE(list.has_value());
  EXPECT_EQ(*list, PropertyList(PropertyListDictionary{
                       {"name", "Value"},
                       {"quoted key", "single"},
                       {"list", PropertyList::Array{"a", "b c"}},
                       {"data", PropertyList::Data{0x0F, 0xA1, 0x2B}},
                       {"inner", PropertyListDictionary{{"path", "/usr/lib:x.y-z_$1"}}},
                       {"empty", ""},
                       {"none", PropertyList::Array()}}));
}

TEST(ParsePropertyListOldStyle, resolvesEscapes) {
  EXPECT_EQ(*parsePropertyList(R"("a\n\t\"\\\'\101\U00fc\UD83D\UDE00\341\251\q\
z")")
                 ->asString(),
            "a\n\t\"\\'Aü😀Æ’q\nz");
}

TEST(ParsePropertyListOldStyle, aTextMayEndInAnEscape) {
  EXPECT_EQ(parsePropertyList(R"("a\n")"), PropertyList("a\n"));
  EXPECT_EQ(parsePropertyList(R"('\101')"), PropertyList("A"));
  EXPECT_EQ(parsePropertyList(R"("a\"")"), PropertyList("a\""));
  EXPECT_FALSE(parsePropertyList(R"("a\n\)").has_value());
}

TEST(ParsePropertyListOldStyle, readsStringsFiles) {
  const auto list = parsePropertyList("/* comment */\n\"a key\" = \"a value\";\nshort;\nb = ( 1 );\n");
  ASSERT_TRUE(list.has_value());
  EXPECT_EQ(*list, PropertyList(PropertyListDictionary{
                       {"a key", "a value"}, {"short", "short"}, {"b", PropertyList::Array{"1"}}}));
}

TEST(ParsePropertyListOldStyle, readsBlanksAsAnEmptyDictionary) {
  EXPECT_EQ(parsePropertyList(" \n// nothing\n"), PropertyList());
}

TEST(ParsePropertyListOldStyle, readsDataAndMarkedText) {
  EXPECT_EQ(parsePropertyList("<0fa1>"), PropertyList(PropertyList::Data{0x0F, 0xA1}));
  EXPECT_EQ(parsePropertyList("\xEF\xBB\xBF{a = 1;}"), PropertyList(PropertyListDictionary{{"a", "1"}}));
  EXPECT_EQ(parsePropertyList(std::string("\xFF\xFEx\0", 4)), PropertyList("x"));
}

TEST(ParsePropertyListOldStyle, refusesWhatIsDamaged) {
  for (const char* damaged : {"{",           "}",         "{ a = b }",    "{ a = ; }", "{ = b; }",
                              "{ a b; }",    "{ a = b; ", "( a",          "( a b )",   "( , )",
                              "<0f",         "<0>",       "<xx>",         "\"open",    "'open",
                              "\"open\\",    "a = b",     "a b",          "( a ) b",   "{ a = ( b; }",
                              "=",           "\xFF",      "{ (a) = b; }", "{} {}",     "a = b; }",
                              "{a = <0 f>;}"})
    EXPECT_FALSE(parsePropertyList(damaged).has_value()) << damaged;
}

TEST(ParsePropertyListOldStyle, holdsTheDepthLimit) {
  const auto nested = [](std::size_t levels) {
    return parsePropertyList(repeated("(", levels) + repeated(")", levels));
  };
  EXPECT_EQ(nested(kPropertyListDepthLimit), nestedArrays(kPropertyListDepthLimit));
  EXPECT_FALSE(nested(kPropertyListDepthLimit + 1).has_value());
  EXPECT_FALSE(nested(500'000).has_value());
  EXPECT_FALSE(parsePropertyList(repeated("{a=", 500'000)).has_value());
}

}  // namespace
}  // namespace sorrel::test
