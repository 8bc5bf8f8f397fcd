#include "SorrelFramework/Platform/Text/Text.hpp"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace sorrel {
namespace {

using Texts = std::vector<std::string>;

constexpr std::string_view kComposed = "\xC3\xA9";      // U+00E9
constexpr std::string_view kDecomposed = "e\xCC\x81";   // U+0065 U+0301
constexpr std::string_view kGrin = "\xF0\x9F\x98\x80";  // U+1F600
const std::string kFFFD = "\xEF\xBF\xBD";

TEST(Text, validUTF8OfEveryLengthIsAccepted) {
  for (const std::string_view text :
       {std::string_view(), std::string_view("plain"), std::string_view("a\0b", 3), kComposed,
        std::string_view("\xE2\x82\xAC"), kGrin, std::string_view("\xF4\x8F\xBF\xBF"),
        std::string_view("\xED\x9F\xBF"), std::string_view("a long text of plain letters, then \xC3\xA9")}) {
    EXPECT_TRUE(isValidUTF8(text)) << text;
  }
}

TEST(Text, illFormedUTF8IsRefused) {
  for (const std::string_view text :
       {"\x80", "\xC0\xAF", "\xC1\xBF", "\xE0\x80\xAF", "\xF0\x80\x80\xAF",  // overlong
        "\xED\xA0\x80", "\xED\xBF\xBF",                                      // surrogates
        "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF",                      // too large
        "\xC3", "\xE2\x82", "\xF0\x9F\x98", "plain text, then \xC3"}) {      // cut off
    EXPECT_FALSE(isValidUTF8(text)) << testing::PrintToString(text);
  }
}

TEST(Text, eachMaximalSubpartBecomesOneReplacementCharacter) {
  EXPECT_EQ(replacingInvalidUTF8("a\xFF"
                                 "b"),
            "a" + kFFFD + "b");
  EXPECT_EQ(replacingInvalidUTF8("\xF0\x9F\x98"
                                 "b"),
            kFFFD + "b");
  EXPECT_EQ(replacingInvalidUTF8("\xE2\x82"), kFFFD);
  EXPECT_EQ(replacingInvalidUTF8("\xED\xA0\x80"), kFFFD + kFFFD + kFFFD);
  EXPECT_EQ(replacingInvalidUTF8("\xC0\xAF"), kFFFD + kFFFD);
  // The example of The Unicode Standard, table 3-8.
  EXPECT_EQ(replacingInvalidUTF8("\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41"),
            kFFFD + kFFFD + kFFFD + kFFFD + "A");
}

TEST(Text, validTextIsNotReplaced) { EXPECT_EQ(replacingInvalidUTF8(kGrin), kGrin); }

TEST(Text, graphemeCountCountsUserPerceivedCharacters) {
  EXPECT_EQ(graphemeCount(""), 0U);
  EXPECT_EQ(graphemeCount("abc"), 3U);
  EXPECT_EQ(graphemeCount(kDecomposed), 1U);
  EXPECT_EQ(graphemeCount("\xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x91\xA7"), 1U);
  EXPECT_EQ(graphemeCount("\xF0\x9F\x87\xA9\xF0\x9F\x87\xAA"), 1U);
  EXPECT_EQ(graphemeCount("a\r\nb\r\n\n"), 5U);
  EXPECT_EQ(graphemeCount("\xC3\xA9\r\n"), 2U);
  EXPECT_EQ(graphemeCount("a\xFF"), 2U);
}

TEST(Text, equalityIsCanonicalEquivalence) {
  EXPECT_TRUE(textEqual(kComposed, kDecomposed));
  EXPECT_TRUE(textEqual("abc", "abc"));
  EXPECT_FALSE(textEqual("abc", "Abc"));
  EXPECT_FALSE(textEqual("e", kDecomposed));
  EXPECT_FALSE(textEqual("\xFF", "\xFE"));
  EXPECT_TRUE(textEqual("\xC3\xA9\xFF", "e\xCC\x81\xFF"));
}

TEST(Text, orderIsThatOfTheScalarValues) {
  EXPECT_TRUE(textLess("Profile 10", "Profile 9"));
  EXPECT_TRUE(textLess("Z", "a"));
  EXPECT_TRUE(textLess("a", kComposed));
  EXPECT_TRUE(textLess("f", kDecomposed)) << "the composed form counts, not the letter e";
  EXPECT_FALSE(textLess(kComposed, kDecomposed));
  EXPECT_FALSE(textLess(kDecomposed, kComposed));
  EXPECT_TRUE(textLess("\xEF\xBD\x81", kGrin)) << "UTF-16 units would order these the other way round";
  EXPECT_TRUE(textLess("", "a"));
}

TEST(Text, thereIsAlwaysAtLeastOneComponent) {
  EXPECT_EQ(componentsSeparatedBy("", "/"), (Texts{""}));
  EXPECT_EQ(componentsSeparatedBy("/", "/"), (Texts{"", ""}));
  EXPECT_EQ(componentsSeparatedBy("/Volumes/X", "/"), (Texts{"", "Volumes", "X"}));
  EXPECT_EQ(componentsSeparatedBy("a\n", "\n"), (Texts{"a", ""}));
  EXPECT_EQ(componentsSeparatedBy("a//b", "/"), (Texts{"a", "", "b"}));
  EXPECT_EQ(componentsSeparatedBy("a, b,c", ", "), (Texts{"a", "b,c"}));
  EXPECT_EQ(componentsSeparatedBy("ab", ""), (Texts{"ab"}));
}

TEST(Text, replacementGoesFromLeftToRightWithoutOverlap) {
  EXPECT_EQ(replacingOccurrences("aaa", "aa", "b"), "ba");
  EXPECT_EQ(replacingOccurrences("a.b.c", ".", ""), "abc");
  EXPECT_EQ(replacingOccurrences("abab", "ab", "abab"), "abababab");
  EXPECT_EQ(replacingOccurrences("abc", "x", "y"), "abc");
  EXPECT_EQ(replacingOccurrences("abc", "", "y"), "abc");
}

TEST(Text, containsIsCaseSensitiveAndCanonical) {
  EXPECT_TRUE(containsText("/Users/a/Library", "/Library"));
  EXPECT_FALSE(containsText("library", "Library"));
  EXPECT_TRUE(containsText("caf\xC3\xA9s", "fe\xCC\x81"));
  EXPECT_TRUE(containsText("cafe\xCC\x81s", kComposed));
  EXPECT_FALSE(containsText("cafes", kComposed));
}

TEST(Text, emptyTextIsFoundNowhere) {
  EXPECT_FALSE(containsText("abc", ""));
  EXPECT_FALSE(containsText("", ""));
}

TEST(Text, lowerCaseIsThatOfUnicodeAndKeepsBadBytes) {
  EXPECT_EQ(lowercased("Library/ABC-xyz_09"), "library/abc-xyz_09");
  EXPECT_EQ(lowercased("\xC3\x89\xC3\x96"), "\xC3\xA9\xC3\xB6");
  EXPECT_EQ(lowercased("I\xC3\x89"), "i\xC3\xA9") << "no dotless i, whatever the locale";
  EXPECT_EQ(lowercased("A\xFF\xC3\x89"), "a\xFF\xC3\xA9");
}

TEST(Text, regexGivesWholeMatchesInOrder) {
  EXPECT_EQ(regexMatches("\"([a-z]+)\" =>", "\"one\" => 1, \"two\" => 2"),
            (Texts{"\"one\" =>", "\"two\" =>"}));
  EXPECT_EQ(regexMatches("[0-9]", "none"), Texts{});
  EXPECT_EQ(regexMatches("a*", "ba"), (Texts{"", "a", ""}));
}

TEST(Text, regexThatDoesNotCompileGivesNothing) {
  EXPECT_EQ(regexMatches("(", "((("), Texts{});
  EXPECT_EQ(regexMatches("[z-a]", "z"), Texts{});
}

TEST(Text, regexHasNoOptions) {
  EXPECT_EQ(regexMatches("a.b", "a\nb"), Texts{});
  EXPECT_EQ(regexMatches("^b", "a\nb"), Texts{});
  EXPECT_EQ(regexMatches("A", "a"), Texts{});
}

// 8 UTF-16 units but 7 characters: the last unit is not searched.
TEST(Text, regexSearchesAsManyUnitsAsThereAreCharacters) {
  EXPECT_EQ(regexMatches("[a-z]+", "\xF0\x9F\x98\x80 ab cd"), (Texts{"ab", "c"}));
  EXPECT_EQ(regexMatches("[a-z]+", "\r\nab"), (Texts{"a"}));
}

TEST(Text, regexReplacesBadBytesFirst) {
  EXPECT_EQ(regexMatches("b.c",
                         "b\xFF"
                         "c"),
            (Texts{"b" + kFFFD + "c"}));
}

TEST(Text, regexOnHugeOutputEnds) {
  const std::string block = "{" + std::string(1'000'000, 'x') + "}";
  const Texts matches = regexMatches("\\{[\\S\\s]*?\\}", block + block);
  ASSERT_EQ(matches.size(), 2U);
  EXPECT_EQ(matches[1], block);
}

TEST(Text, regexThatWouldRunForeverEndsWithoutAMatch) {
  EXPECT_EQ(regexMatches("(a+)+$", std::string(60, 'a') + "b"), Texts{});
}

}  // namespace
}  // namespace sorrel
