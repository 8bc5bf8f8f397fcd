#include "SorrelFramework/Platform/Text/SizeText.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace sorrel {
namespace {

TEST(SizeText, bytesHaveNoDecimal) {
  EXPECT_EQ(sizeText(0), "0 B");
  EXPECT_EQ(sizeText(1023), "1023 B");
}

TEST(SizeText, largerSizesHaveOneDecimal) {
  EXPECT_EQ(sizeText(1024), "1.0 KiB");
  EXPECT_EQ(sizeText(1536), "1.5 KiB");
  EXPECT_EQ(sizeText(std::int64_t{3} << 30), "3.0 GiB");
  EXPECT_EQ(sizeText(std::numeric_limits<std::int64_t>::max()), "8.0 EiB");
}

TEST(SizeText, aSizeThatRoundsToTheNextUnitIsWrittenInIt) {
  EXPECT_EQ(sizeText(1024 * 1024 - 1), "1.0 MiB");
  EXPECT_EQ(sizeText(1023 * 1024), "1023.0 KiB");
}

}  // namespace
}  // namespace sorrel
