#include "SorrelFramework/Platform/Text/DateText.hpp"

#include <gtest/gtest.h>

#include <string>

namespace sorrel {
namespace {

constexpr const char* kFormat = "yyyy-MM-dd HH:mm:ss";

TEST(DateText, writesTheMomentInTheTimeZone) {
  EXPECT_EQ(formattedDate({0}, kFormat, "zh_CN", "UTC"), "1970-01-01 00:00:00");
  EXPECT_EQ(formattedDate({0}, kFormat, "zh_CN", "Asia/Shanghai"), "1970-01-01 08:00:00");
  EXPECT_EQ(formattedDate({1714549812}, kFormat, "zh_CN", "Europe/Berlin"), "2024-05-01 09:50:12");
}

TEST(DateText, languageDoesNotChangeTheDigitsOfChinese) {
  EXPECT_EQ(formattedDate({1714549812}, kFormat, "zh_CN", "UTC"),
            formattedDate({1714549812}, kFormat, "en_US", "UTC"));
}

TEST(DateText, languageChangesTheNames) {
  EXPECT_EQ(formattedDate({0}, "EEEE", "en_US", "UTC"), "Thursday");
  EXPECT_EQ(formattedDate({0}, "EEEE", "zh_CN", "UTC"), "星期四");
}

TEST(DateText, cutsFractionsOfASecondOff) {
  EXPECT_EQ(formattedDate({59.999}, "ss", "zh_CN", "UTC"), "59");
  EXPECT_EQ(formattedDate({59.25}, "ss.SSS", "zh_CN", "UTC"), "59.250");
}

TEST(DateText, writesMomentsBefore1970) {
  EXPECT_EQ(formattedDate({-1}, kFormat, "zh_CN", "UTC"), "1969-12-31 23:59:59");
}

TEST(DateText, quotedTextStandsForItself) {
  EXPECT_EQ(formattedDate({0}, "'day' d", "zh_CN", "UTC"), "day 1");
}

TEST(DateText, emptyPatternGivesNothing) { EXPECT_EQ(formattedDate({0}, "", "zh_CN", "UTC"), ""); }

}  // namespace
}  // namespace sorrel
