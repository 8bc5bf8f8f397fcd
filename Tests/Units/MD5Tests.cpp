#include "SorrelFramework/Units/MD5.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace sorrel {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Words = std::vector<std::int32_t>;

struct Published {
  const char* text;
  const char* digest;
};

// RFC 1321, appendix A.5, in upper case.
constexpr Published kPublished[] = {
    {"", "D41D8CD98F00B204E9800998ECF8427E"},
    {"a", "0CC175B9C0F1B6A831C399E269772661"},
    {"abc", "900150983CD24FB0D6963F7D28E17F72"},
    {"message digest", "F96B697D7CB7938D525A2F31AAF161D0"},
    {"abcdefghijklmnopqrstuvwxyz", "C3FCD3D76192E4007DFB496CCA67E13B"},
    {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "D174AB98D277D9F5A5611C2C9F419D9F"},
    {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
     "57EDF4A22BE3C955AC49DA2E2107B67A"},
};

TEST(MD5, givesThePublishedDigestsInUpperCase) {
  for (const auto& [text, digest] : kPublished) {
    EXPECT_EQ(MD5(text), digest) << text;
    EXPECT_EQ(hex_md5(text), digest) << text;
  }
}

TEST(MD5, digestsTheUTF8BytesOfCharactersBeyondASCII) {
  EXPECT_EQ(MD5("\xC3\xA9"), "66DDCD97CFDEABB2F6FB8A999B4BC76F");
}

// The lengths around the padding's edge: 55 bytes fit one block with the length, 56 need a second.
TEST(MD5, padsAtTheEdgesOfABlock) {
  EXPECT_EQ(MD5(std::string(55, 'a')), "EF1772B6DFF9A122358552954AD0DF65");
  EXPECT_EQ(MD5(std::string(56, 'a')), "3B0C8AC703F828B04C6C197006D17218");
  EXPECT_EQ(MD5(std::string(63, 'a')), "B06521F39153D618550606BE297466D5");
  EXPECT_EQ(MD5(std::string(64, 'a')), "014842D480B571495A4A0363793F7367");
  EXPECT_EQ(MD5(std::string(65, 'a')), "C743A45E0D2E6A95CB859ADAE0248435");
}

TEST(MD5, str2rstrGivesUnsignedBytes) { EXPECT_EQ(str2rstr_utf8("a\xC3\xA9"), (Bytes{0x61, 0xC3, 0xA9})); }

TEST(MD5, rstrMd5GivesTheBytesOfTheDigest) {
  const Bytes digest = rstr_md5({});
  EXPECT_EQ(digest.size(), 16U);
  EXPECT_EQ(digest.front(), 0xD4);
  EXPECT_EQ(digest.back(), 0x7E);
}

TEST(MD5, rstr2hexWritesTheHighFourBitsFirstInUpperCase) {
  EXPECT_EQ(rstr2hex({0x00, 0x0F, 0xF0, 0xAB}), "000FF0AB");
  EXPECT_EQ(rstr2hex({}), "");
}

TEST(MD5, rstr2trGivesOneScalarForEachByte) {
  EXPECT_EQ(rstr2tr({0x41, 0x7F, 0x80, 0xE9, 0xFF}), "A\x7F\xC2\x80\xC3\xA9\xC3\xBF");
}

TEST(MD5, rstr2binlPacksTheLowestByteFirst) {
  EXPECT_EQ(rstr2binl({0x01, 0x02, 0x03, 0x04, 0x05}), (Words{0x04030201, 0x05}));
  EXPECT_EQ(rstr2binl({0xFF, 0xFF, 0xFF, 0xFF}), (Words{-1}));
  EXPECT_EQ(rstr2binl({}), Words{});
}

TEST(MD5, dictionary2arrayPutsEachValueAtItsKey) {
  EXPECT_EQ(dictionary2array({{1, 20}, {0, 10}}), (Words{10, 20}));
  EXPECT_EQ(dictionary2array({}), Words{});
}

TEST(MD5DeathTest, dictionary2arrayWithAGapStops) {
  EXPECT_DEATH(static_cast<void>(dictionary2array({{0, 1}, {2, 1}})), "out of range");
}

TEST(MD5DeathTest, lengthThatIsNoNumberOfBitsStops) {
  EXPECT_DEATH(static_cast<void>(binl_md5({}, -8)), "Arithmetic overflow");
  EXPECT_DEATH(static_cast<void>(binl_md5({}, std::numeric_limits<int>::max())), "Arithmetic overflow");
}

TEST(MD5, binl2rstrIsTheReverseOfThePacking) {
  EXPECT_EQ(binl2rstr({0x04030201, -1}), (Bytes{1, 2, 3, 4, 0xFF, 0xFF, 0xFF, 0xFF}));
}

TEST(MD5, binlMd5OfNoBitsIsTheDigestOfTheEmptyText) {
  EXPECT_EQ(rstr2hex(binl2rstr(binl_md5({}, 0))), "D41D8CD98F00B204E9800998ECF8427E");
}

TEST(MD5, binlMd5CountsBitsNotWords) {
  EXPECT_EQ(rstr2hex(binl2rstr(binl_md5({0x61}, 8))), "0CC175B9C0F1B6A831C399E269772661");
}

TEST(MD5, lengthIsTheLargestKeyPlusOne) {
  EXPECT_EQ(length({{0, 0}, {14, 0}}), 15);
  EXPECT_EQ(length({{0, 7}}), 1);
}

TEST(MD5, lengthOfAnEmptyDictionaryIsOne) { EXPECT_EQ(length({}), 1); }

TEST(MD5, unwrapOfNothingIsZeroOrTheFallback) {
  EXPECT_EQ(unwrap(std::nullopt), 0);
  EXPECT_EQ(unwrap(std::nullopt, 5), 5);
  EXPECT_EQ(unwrap(-3, 5), -3);
}

TEST(MD5, zeroFillRightShiftDoesNotSpreadTheSignBit) {
  EXPECT_EQ(zeroFillRightShift(-1, 28), 0xF);
  EXPECT_EQ(zeroFillRightShift(-1, 0), -1);
  EXPECT_EQ(zeroFillRightShift(-1, 32), 0);
}

TEST(MD5, safeAddWrapsSilently) {
  using Limits = std::numeric_limits<std::int32_t>;
  EXPECT_EQ(safe_add(Limits::max(), 1), Limits::min());
  EXPECT_EQ(safe_add(Limits::min(), -1), Limits::max());
  EXPECT_EQ(safe_add(2, 3), 5);
}

TEST(MD5, bitRolRotatesAllThirtyTwoBits) {
  EXPECT_EQ(bit_rol(1, 31), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(bit_rol(static_cast<std::int32_t>(0x80000001U), 4), 0x18);
  EXPECT_EQ(bit_rol(77, 0), 77);
}

// b chosen as all ones or all zeros picks one side of each function.
TEST(MD5, roundFunctionsSelectAsPublished) {
  EXPECT_EQ(md5_cmn(1, 2, 3, 4, 1, 5), 27);            // ((1+2+4+5) << 1) + 3
  EXPECT_EQ(md5_ff(0, -1, 6, 9, 0, 1, 0), 2 * 6 - 1);  // b ? c : d
  EXPECT_EQ(md5_ff(0, 0, 6, 9, 0, 1, 0), 2 * 9);
  EXPECT_EQ(md5_gg(0, 5, 6, -1, 0, 1, 0), 2 * 5 + 5);  // d ? b : c
  EXPECT_EQ(md5_gg(0, 5, 6, 0, 0, 1, 0), 2 * 6 + 5);
  EXPECT_EQ(md5_hh(0, 1, 2, 4, 0, 1, 0), 2 * 7 + 1);  // b ^ c ^ d
  EXPECT_EQ(md5_ii(0, 0, 6, -1, 0, 1, 0), 2 * 6);     // c ^ (b | ~d)
}

}  // namespace
}  // namespace sorrel
