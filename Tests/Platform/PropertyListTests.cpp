#include "SorrelFramework/Platform/PropertyList.hpp"

#include <sys/stat.h>
#include <clocale>
#include <cmath>

#include <filesystem>
#include <fstream>
#include <limits>

#include <gtest/gtest.h>

#include "SorrelFramework/Platform/FileBytes.hpp"
#include "Tests/Support/PropertyListBytes.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::test {
namespace {

using Type = PropertyList::Type;

/// One list with a value of every kind, as plistlib of Python writes it in both forms.
constexpr std::string_view kForeignBinary =
    "62706c6973743030dc0102030405060708090a0b0c0d182122232425262728292a547a65746155616c70686165004700"
    "7200fc00df006555656d7074795464617461566e6f646174615464617465536f6c64536661725a656d70747941727261"
    "7959656d70747944696374566e6573746564aa0e0f1011121314151617100113fffffffffffffffb100010ff11010012"
    "000100001280000000137fffffffffffffff138000000000000000140000000000000000ffffffffffffffffd4191a1b"
    "1c1d1e1f2054747275655566616c7365547265616c536f6e650908233fb999999999999a233ff80000000000006f100f"
    "65e5672c0020d83dde00002000260020003c0078003e0020002200710022504f1046000102030405060708090a0b0c0d"
    "0e0f101112131415161718191a1b1c1d1e1f202122232425262728292a2b2c2d2e2f303132333435363738393a3b3c3d"
    "3e3f404142434445403341c5c858b800000033c22d63c37f00000033424d62d23c7f8000a0d0a12ba12cd12d2e546465"
    "6570a12f43616263000800210026002c0037003d00420049004e005200560061006b0072007d007f0088008a008c008f"
    "0094009900a200ab00bc00c500ca00d000d500d900da00db00e400ed010e010f015801590162016b0174017501760178"
    "017a017d018201840000000000000201000000000000003000000000000000000000000000000188";
constexpr std::string_view kForeignXML = R"xml(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>Grüße</key>
	<string>日本 😀 &amp; &lt;x&gt; "q"</string>
	<key>alpha</key>
	<dict>
		<key>false</key>
		<false/>
		<key>one</key>
		<real>1.5</real>
		<key>real</key>
		<real>0.1</real>
		<key>true</key>
		<true/>
	</dict>
	<key>data</key>
	<data>
	AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEy
	MzQ1Njc4OTo7PD0+P0BBQkNERQ==
	</data>
	<key>date</key>
	<date>2024-02-29T12:34:56Z</date>
	<key>empty</key>
	<string></string>
	<key>emptyArray</key>
	<array/>
	<key>emptyDict</key>
	<dict/>
	<key>far</key>
	<date>9999-12-31T23:59:59Z</date>
	<key>nested</key>
	<array>
		<array>
			<dict>
				<key>deep</key>
				<array>
					<data>
					YWJj
					</data>
				</array>
			</dict>
		</array>
	</array>
	<key>nodata</key>
	<data>
	</data>
	<key>old</key>
	<date>0001-01-01T00:00:00Z</date>
	<key>zeta</key>
	<array>
		<integer>1</integer>
		<integer>-5</integer>
		<integer>0</integer>
		<integer>255</integer>
		<integer>256</integer>
		<integer>65536</integer>
		<integer>2147483648</integer>
		<integer>9223372036854775807</integer>
		<integer>-9223372036854775808</integer>
		<integer>18446744073709551615</integer>
	</array>
</dict>
</plist>
)xml";
std::string xml(std::string_view root) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + std::string(root) +
         "</plist>\n";
}

std::optional<PropertyList> parseElement(std::string_view root) { return parsePropertyList(xml(root)); }

PropertyList everyKind() {
  PropertyList::Data data;
  for (int i = 0; i < 70; ++i) data.push_back(static_cast<std::uint8_t>(i));
  using Array = PropertyList::Array;
  using Dictionary = PropertyListDictionary;
  return Dictionary{
      {"zeta",
       Array{1, -5, 0, 255, 256, 65536, std::int64_t{1} << 31, std::numeric_limits<std::int64_t>::max(),
             std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::uint64_t>::max()}},
      {"alpha", Dictionary{{"true", true}, {"false", false}, {"real", 0.1}, {"one", 1.5}}},
      {"Grüße", "日本 😀 & <x> \"q\""},
      {"empty", ""},
      {"data", data},
      {"nodata", PropertyList::Data()},
      {"date", Date{1709210096}},
      {"old", Date{-62135596800}},
      {"far", Date{253402300799}},
      {"emptyArray", Array()},
      {"emptyDict", Dictionary()},
      {"nested", Array{Array{Dictionary{{"deep", Array{PropertyList::Data{'a', 'b', 'c'}}}}}}},
  };
}

PropertyList nestedArrays(std::size_t levels) {
  PropertyList list = PropertyList::Array();
  for (std::size_t i = 1; i < levels; ++i) {
    PropertyList::Array around;
    around.push_back(std::move(list));
    list = std::move(around);
  }
  return list;
}

/// The most bytes of addresses that this process ever had.
std::size_t addressSpacePeak() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmPeak:")) return std::stoull(line.substr(7)) * 1024;
  }
  return 0;
}

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

TEST(ParsePropertyListXML, refusesWhatIsDamaged) {
  const char* const kDamaged[] = {"<dict><key>a</key></dict>",
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

TEST(ParsePropertyList, holdsTheByteLimit) {
  std::string text = xml("<true/>");
  text.resize(kPropertyListByteLimit, ' ');
  EXPECT_TRUE(parsePropertyList(text).has_value());
  EXPECT_FALSE(parsePropertyList(text + " ").has_value());
}

TEST(ParsePropertyListBinary, readsEveryWidth) {
  const auto only = [](const std::string& hex) { return parsePropertyList(binaryList({bytesOfHex(hex)})); };
  EXPECT_EQ(only("10ff"), PropertyList(255));
  EXPECT_EQ(only("11ffff"), PropertyList(65535));
  EXPECT_EQ(only("12ffffffff"), PropertyList(4294967295));
  EXPECT_EQ(only("13fffffffffffffffb"), PropertyList(-5));
  EXPECT_EQ(only("14fffffffffffffffffffffffffffffffb"), PropertyList(-5));
  EXPECT_EQ(only("140000000000000000000000000000000a"), PropertyList(10));
  EXPECT_EQ(only("223fc00000"), PropertyList(1.5));
  EXPECT_EQ(only("233ff8000000000000"), PropertyList(1.5));
  EXPECT_EQ(only("330000000000000000")->asDate(), Date{978307200});
  EXPECT_EQ(only("81012c")->asUID(), PropertyList::UID{300});
  EXPECT_FALSE(only("7261c3").has_value());
  EXPECT_EQ(only("72c3bc"), PropertyList("ü"));
  EXPECT_EQ(only("62d83dde00"), PropertyList("😀"));
  EXPECT_EQ(only("61d83d"), PropertyList("\xEF\xBF\xBD"));
}

TEST(ParsePropertyListBinary, refusesWhatIsNoValue) {
  for (const char* hex :
       {"00", "0f", "0a", "1500000000", "18", "21ffff", "24", "30", "32ffffffff", "51ff", "90", "b0", "c0",
        "e0", "f0", "8f000000000000000000000000000000ff", "1400000000000000010000000000000000"})
    EXPECT_FALSE(parsePropertyList(binaryList({bytesOfHex(hex)})).has_value()) << hex;
}

TEST(ParsePropertyListBinary, refusesCountsBeyondTheFile) {
  for (const char* hex :
       {"4f13ffffffffffffffff", "4f137fffffffffffffff", "5f131000000000000000", "af138000000000000000",
        "6f137fffffffffffffff", "df137fffffffffffffff", "af14", "af", "42ff", "4f10", "4f2010"})
    EXPECT_FALSE(parsePropertyList(binaryList({bytesOfHex(hex)})).has_value()) << hex;
}

TEST(ParsePropertyListBinary, refusesReferencesOutOfRangeAndKeysThatAreNoTexts) {
  EXPECT_FALSE(parsePropertyList(binaryList({bytesOfHex("a101")})).has_value());
  EXPECT_FALSE(parsePropertyList(binaryList({bytesOfHex("d10101"), bytesOfHex("1001")})).has_value());
  EXPECT_TRUE(parsePropertyList(binaryList({bytesOfHex("d10101"), bytesOfHex("5161")})).has_value());
}

TEST(ParsePropertyListBinary, refusesCycles) {
  EXPECT_FALSE(parsePropertyList(binaryList({bytesOfHex("a100")})).has_value());
  EXPECT_FALSE(parsePropertyList(binaryList({bytesOfHex("a101"), bytesOfHex("a100")})).has_value());
}

TEST(ParsePropertyListBinary, givesEachUseOfASharedObjectACopy) {
  const auto list =
      parsePropertyList(binaryList({bytesOfHex("a20101"), bytesOfHex("a102"), bytesOfHex("09")}));
  const PropertyList inner = PropertyList::Array{true};
  EXPECT_EQ(list, PropertyList(PropertyList::Array{inner, inner}));
}

TEST(ParsePropertyListBinary, refusesSharedObjectsThatExplode) {
  std::vector<std::string> objects;
  for (char level = 0; level < 40; ++level)
    objects.push_back("\xA2" + std::string(2, static_cast<char>(level + 1)));
  objects.push_back("\x09");
  EXPECT_FALSE(parsePropertyList(binaryList(objects)).has_value());
}

// Arrays inside one another that lie over the same bytes: each tells of as many items as the file has bytes.
TEST(ParsePropertyListBinary, countsOfArraysThatOverlapTakeNoMemory) {
  constexpr std::size_t kArrays = kPropertyListDepthLimit - 1;
  constexpr std::size_t kItems = 1'000'000;
  std::string file = "bplist00";
  std::string offsets;
  for (std::size_t i = 0; i < kArrays; ++i) {
    offsets += bigEndian(file.size(), 4);
    // The marker, the count, and the first reference, to the next array.
    file += "\xAF\x12" + bigEndian(kItems, 4) + bigEndian(i + 1, 4);
  }
  offsets += bigEndian(file.size(), 4);
  file += std::string(4 * kItems, '\0');  // the last object is none, and the others reach over these bytes
  const std::size_t table = file.size();
  file += offsets + std::string(6, '\0') + "\4\4" + bigEndian(kArrays + 1, 8) + bigEndian(0, 8) +
          bigEndian(table, 8);
  const std::size_t before = addressSpacePeak();
  EXPECT_FALSE(parsePropertyList(file).has_value());
  EXPECT_LT(addressSpacePeak() - before, std::size_t{1} << 30);
}

TEST(ParsePropertyListBinary, refusesLongTextsSharedTooOften) {
  const std::string text = "\x5F\x12" + bigEndian(1 << 20, 4) + std::string(1 << 20, 'a');
  const std::string uses = "\xAF\x12" + bigEndian(100'000, 4) + std::string(100'000, '\1');
  EXPECT_FALSE(parsePropertyList(binaryList({uses, text})).has_value());
}

TEST(ParsePropertyListBinary, holdsTheDepthLimit) {
  const auto nested = [](std::size_t levels) {
    std::vector<std::string> objects;
    for (std::size_t i = 1; i < levels; ++i) objects.push_back("\xA1" + bigEndian(i, 4));
    objects.emplace_back("\xA0");
    return parsePropertyList(binaryList(objects, 4));
  };
  EXPECT_EQ(nested(kPropertyListDepthLimit), nestedArrays(kPropertyListDepthLimit));
  EXPECT_FALSE(nested(kPropertyListDepthLimit + 1).has_value());
  EXPECT_FALSE(nested(500'000).has_value());
}

TEST(ParsePropertyListBinary, refusesDamagedTrailers) {
  const std::string whole = binaryList({"\xA1\x01", "\x09"});
  ASSERT_TRUE(parsePropertyList(whole).has_value());
  const std::size_t trailer = whole.size() - 32;
  const auto changed = [&](std::size_t at, const std::string& bytes) {
    std::string damaged = whole;
    damaged.replace(trailer + at, bytes.size(), bytes);
    return parsePropertyList(damaged);
  };
  EXPECT_FALSE(changed(6, bigEndian(0, 1)).has_value());  // width of offsets
  EXPECT_FALSE(changed(6, bigEndian(9, 1)).has_value());
  EXPECT_FALSE(changed(7, bigEndian(0, 1)).has_value());  // width of references
  EXPECT_FALSE(changed(7, bigEndian(200, 1)).has_value());
  EXPECT_FALSE(changed(8, bigEndian(0, 8)).has_value());  // number of objects
  EXPECT_FALSE(changed(8, bigEndian(3, 8)).has_value());
  EXPECT_FALSE(changed(8, bigEndian(std::uint64_t{1} << 60, 8)).has_value());
  EXPECT_FALSE(changed(16, bigEndian(2, 8)).has_value());  // top object
  EXPECT_FALSE(changed(24, bigEndian(8, 8)).has_value());  // offset table
  EXPECT_FALSE(changed(24, bigEndian(whole.size(), 8)).has_value());
  EXPECT_FALSE(changed(24, std::string(8, '\xFF')).has_value());
}

TEST(ParsePropertyListBinary, survivesEveryTruncationAndEveryChangedByte) {
  const std::string whole = bytesOfHex(kForeignBinary);
  for (std::size_t length = 7; length < whole.size(); ++length)
    EXPECT_FALSE(parsePropertyList(std::string_view(whole).substr(0, length)).has_value()) << length;
  for (std::size_t at = 8; at < whole.size(); ++at) {
    for (const int value : {0x00, 0x7F, 0x80, 0xA1, 0xDF, 0xFF}) {
      std::string damaged = whole;
      damaged[at] = static_cast<char>(value);
      const auto list = parsePropertyList(damaged);
      if (!list.has_value()) continue;
      const auto written = writePropertyListBinary(*list);
      ASSERT_TRUE(written.has_value());
      EXPECT_EQ(parsePropertyList(*written), list);
    }
  }
}

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
  // Its writer takes the objects in the same order and the same widths.
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
