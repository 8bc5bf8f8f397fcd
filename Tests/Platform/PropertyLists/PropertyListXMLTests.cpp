#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

#include "Tests/Platform/PropertyLists/PropertyListKit.hpp"
#include "Tests/Support/PropertyListBytes.hpp"

namespace sorrel::test {
namespace {

using Type = PropertyList::Type;

TEST(ParsePropertyListXML, acceptsAByteOrderMark) {
  EXPECT_EQ(*parsePropertyList("\xEF\xBB\xBF" + xml("<string>ü</string>"))->asString(), "ü");
}

TEST(ParsePropertyListXML, acceptsUTF16OfBothOrders) {
  const std::string text =
      "<?xml version=\"1.0\" encoding=\"UTF-16\"?><plist><string>a&#xFC;</string></plist>";
  std::string big = "\xFE\xFF";
  std::string little = "\xFF\xFE";
  for (const char c : text) {
    big += std::string(1, '\0') + c;
    little += c + std::string(1, '\0');
  }
  ASSERT_TRUE(parsePropertyList(big).has_value());
  EXPECT_EQ(*parsePropertyList(big)->asString(), "aü");
  EXPECT_EQ(*parsePropertyList(little)->asString(), "aü");
  EXPECT_FALSE(parsePropertyList(big + "x").has_value());
}

TEST(ParsePropertyListXML, needsNoHeaderAndNoPlistElement) {
  EXPECT_EQ(parsePropertyList("<dict><key>a</key><integer>1</integer></dict>")->find("a")->asInteger(), 1);
  EXPECT_EQ(parsePropertyList(" \n<plist><true/></plist>")->asBoolean(), true);
}

TEST(ParsePropertyListXML, skipsCommentsInstructionsAndAttributes) {
  const auto list = parsePropertyList(
      "<!-- <dict> --><?what ever?><!DOCTYPE plist SYSTEM \"file://localhost/x.dtd\"><plist version='1'>"
      "<!-- one --><array id=\"x\"><string>a<!-- two -->b</string><!----></array></plist>");
  ASSERT_TRUE(list.has_value());
  EXPECT_EQ(*list, PropertyList(PropertyList::Array{"ab"}));
}

TEST(ParsePropertyListXML, resolvesEntitiesAndKeepsBlanks) {
  EXPECT_EQ(*parseElement("<string> &amp;&lt;&gt;&quot;&apos;&#65;&#x1F600; \n</string>")->asString(),
            " &<>\"'A😀 \n");
  EXPECT_EQ(*parseElement("<string><![CDATA[&amp;<b>]]>c</string>")->asString(), "&amp;<b>c");
  EXPECT_EQ(parseElement("<dict><key>a&amp;b</key><true/></dict>")->asDictionary()->begin()->key, "a&b");
}

TEST(ParsePropertyListXML, readsNumbersInEverySpelling) {
  const std::pair<const char*, std::int64_t> kSpellings[] = {
      {"5", 5},
      {"-5", -5},
      {"+5", 5},
      {" 5\n", 5},
      {"010", 10},
      {"0x1F", 31},
      {"-0X10", -16},
      {"-0", 0},
      {"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
      {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()}};
  for (const auto& [text, value] : kSpellings) {
    const auto list = parseElement("<integer>" + std::string(text) + "</integer>");
    ASSERT_TRUE(list.has_value()) << text;
    EXPECT_EQ(list->asInteger(), value) << text;
    EXPECT_EQ(list->type(), Type::Integer);
  }
}

TEST(ParsePropertyListXML, readsRealsOfEverySize) {
  EXPECT_EQ(parseElement("<real>1.5</real>")->asReal(), 1.5);
  EXPECT_EQ(parseElement("<real> -1e300 </real>")->asReal(), -1e300);
  EXPECT_EQ(parseElement("<real>+2</real>")->asReal(), 2.0);
  EXPECT_EQ(parseElement("<real>0.10000000000000001</real>")->asReal(), 0.1);
  EXPECT_TRUE(std::isnan(*parseElement("<real>nan</real>")->asReal()));
  EXPECT_EQ(parseElement("<real>-infinity</real>")->asReal(), -std::numeric_limits<double>::infinity());
}

TEST(ParsePropertyListXML, readsDatesFarAway) {
  EXPECT_EQ(parseElement("<date>1970-01-01T00:00:00Z</date>")->asDate(), Date{0});
  EXPECT_EQ(parseElement("<date>4001-01-01T00:00:00Z</date>")->asDate(), Date{64092211200});
  EXPECT_EQ(parseElement("<date>1904-01-01T00:00:00Z</date>")->asDate(), Date{-2082844800});
}

constexpr const char* kDamaged[] = {"<dict><key>a</key></dict>",
                                    "<dict><true/></dict>",
                                    "<dict><key>a</key><key>b</key></dict>",
                                    "<array><key>a</key></array>",
                                    "<dict>text</dict>",
                                    "<array><string>a</array>",
                                    "<array></dict>",
                                    "<string>a<b/></string>",
                                    "<string>&nbsp;</string>",
                                    "<string>&#0;</string>",
                                    "<string>&#xD800;</string>",
                                    "<string>&#x110000;</string>",
                                    "<string>& </string>",
                                    "<string>\xFF</string>",
                                    "<integer></integer>",
                                    "<integer/>",
                                    "<integer>5x</integer>",
                                    "<integer>18446744073709551616</integer>",
                                    "<integer>-9223372036854775809</integer>",
                                    "<integer>--5</integer>",
                                    "<integer>1.5</integer>",
                                    "<real>x</real>",
                                    "<real>nan(1)</real>",
                                    "<real></real>",
                                    "<real>1,5</real>",
                                    "<date>2024-02-29</date>",
                                    "<date>2024-13-01T00:00:00Z</date>",
                                    "<date>2024-01-01T24:00:00Z</date>",
                                    "<date>x024-01-01T00:00:00Z</date>",
                                    "<data>A===</data>",
                                    "<data>AAA</data>",
                                    "<data>A!AA</data>",
                                    "<data>AA=A</data>",
                                    "<true>x</true>",
                                    "<set/>",
                                    "<true/><true/>",
                                    "<plist><true/></plist>",
                                    "",
                                    "<key>a</key>",
                                    "<array><!-- </array>",
                                    "<array><?x</array>",
                                    "<string><![CDATA[x</string>"};

TEST(ParsePropertyListXML, refusesWhatIsDamaged) {
  for (const char* damaged : kDamaged) EXPECT_FALSE(parseElement(damaged).has_value()) << damaged;
}

TEST(ParsePropertyListXML, refusesEveryTruncation) {
  const std::string_view whole = kForeignXML.substr(0, kForeignXML.size() - 1);
  for (std::size_t length = whole.find("<plist") + 1; length < whole.size(); ++length)
    ASSERT_FALSE(parsePropertyList(whole.substr(0, length)).has_value()) << length;
}

TEST(ParsePropertyListXML, refusesDeclaredEntities) {
  EXPECT_FALSE(parsePropertyList("<?xml version=\"1.0\"?><!DOCTYPE plist [<!ENTITY a \"b\">]>"
                                 "<plist><string>x</string></plist>")
                   .has_value());
}

TEST(ParsePropertyListXML, readsTheSameInEveryLocale) {
  const char* const before = std::setlocale(LC_ALL, nullptr);
  const std::string saved = before;
  if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr) GTEST_SKIP() << "no locale with a comma";
  const auto list = parseElement("<real>1.5</real>");
  std::setlocale(LC_ALL, saved.c_str());
  EXPECT_EQ(list->asReal(), 1.5);
}

TEST(ParsePropertyListXML, holdsTheDepthLimit) {
  const auto nested = [](std::size_t levels) {
    return parseElement(repeated("<array>", levels) + repeated("</array>", levels));
  };
  EXPECT_EQ(nested(kPropertyListDepthLimit), nestedArrays(kPropertyListDepthLimit));
  EXPECT_FALSE(nested(kPropertyListDepthLimit + 1).has_value());
  EXPECT_FALSE(nested(500'000).has_value());
  EXPECT_FALSE(parseElement(repeated("<dict><key>a</key>", 500'000)).has_value());
}

TEST(ParsePropertyListXML, holdsTheNodeLimit) {
  EXPECT_FALSE(
      parseElement("<array>" + repeated("<true/>", kPropertyListNodeLimit) + "</array>").has_value());
}

}  // namespace
}  // namespace sorrel::test
