#include "SorrelFramework/Platform/Digest/Digest.hpp"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>

namespace sorrel {
namespace {

std::string digestOf(DigestKind kind, std::string_view text, std::size_t piece = 1000) {
  Digest digest(kind);
  EXPECT_TRUE(digest.start());
  for (; !text.empty(); text.remove_prefix(std::min(piece, text.size()))) {
    EXPECT_TRUE(digest.update(text.data(), std::min(piece, text.size())));
  }
  std::array<std::uint8_t, Digest::kLongest> bytes{};
  EXPECT_TRUE(digest.finish(bytes.data()));
  return lowerCaseHex(std::span(bytes).first(Digest::length(kind)));
}

// RFC 1321, A.5, and FIPS 180-4's example for SHA-512.
TEST(Digest, givesThePublishedDigests) {
  EXPECT_EQ(digestOf(DigestKind::MD5, ""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(digestOf(DigestKind::MD5, "message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
  EXPECT_EQ(digestOf(DigestKind::SHA512, "abc"),
            "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
            "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f");
}

TEST(Digest, doesNotDependOnThePieces) {
  const std::string text(1000, 'a');
  EXPECT_EQ(digestOf(DigestKind::MD5, text, 1), digestOf(DigestKind::MD5, text, 1000));
  EXPECT_EQ(digestOf(DigestKind::SHA512, text, 7), digestOf(DigestKind::SHA512, text, 1000));
}

TEST(Digest, startsAnewAfterAnEndAndInTheMiddle) {
  Digest digest(DigestKind::MD5);
  std::array<std::uint8_t, 16> bytes{};
  ASSERT_TRUE(digest.start());
  ASSERT_TRUE(digest.update("left over", 9));
  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(digest.start());
    ASSERT_TRUE(digest.finish(bytes.data()));
    EXPECT_EQ(lowerCaseHex(bytes), "d41d8cd98f00b204e9800998ecf8427e");
  }
}

TEST(Digest, refusesStepsOutOfOrder) {
  Digest digest(DigestKind::MD5);
  std::array<std::uint8_t, 16> bytes{};
  EXPECT_FALSE(digest.update("a", 1));
  EXPECT_FALSE(digest.finish(bytes.data()));
  ASSERT_TRUE(digest.start());
  ASSERT_TRUE(digest.finish(bytes.data()));
  EXPECT_FALSE(digest.finish(bytes.data()));
}

TEST(LowerCaseHex, writesTwoDigitsForEachByte) {
  const std::array<std::uint8_t, 4> bytes = {0x00, 0x0F, 0xF0, 0xAB};
  EXPECT_EQ(lowerCaseHex(bytes), "000ff0ab");
  EXPECT_EQ(lowerCaseHex({}), "");
}

}  // namespace
}  // namespace sorrel
