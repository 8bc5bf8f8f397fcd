#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "Tests/Platform/PropertyLists/PropertyListKit.hpp"
#include "Tests/Support/PropertyListBytes.hpp"

namespace sorrel::test {
namespace {

/// The peak of the address space of this process in bytes.
std::size_t addressSpacePeak() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmPeak:")) return std::stoull(line.substr(7)) * 1024;
  }
  return 0;
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

// Nested arrays over the same bytes: each declares as many items as the file has bytes.
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
  file += std::string(4 * kItems, '\0');  // the last object is invalid; the others extend over these bytes
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

}  // namespace
}  // namespace sorrel::test
