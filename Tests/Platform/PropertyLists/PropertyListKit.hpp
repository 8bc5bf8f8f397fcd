#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"
#include "Tests/Support/PropertyListBytes.hpp"

namespace sorrel::test {

/// One list with a value of every kind, as plistlib of Python writes it in both forms.
inline constexpr std::string_view kForeignBinary =
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
inline constexpr std::string_view kForeignXML = R"xml(<?xml version="1.0" encoding="UTF-8"?>
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

/// A document with this root element.
inline std::string xml(std::string_view root) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + std::string(root) +
         "</plist>\n";
}

inline std::optional<PropertyList> parseElement(std::string_view root) {
  return parsePropertyList(xml(root));
}

/// The contents of kForeignBinary and kForeignXML.
inline PropertyList everyKind() {
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

/// Nested empty arrays.
inline PropertyList nestedArrays(std::size_t levels) {
  PropertyList list = PropertyList::Array();
  for (std::size_t i = 1; i < levels; ++i) {
    PropertyList::Array around;
    around.push_back(std::move(list));
    list = std::move(around);
  }
  return list;
}

}  // namespace sorrel::test
