#include "Helper/HelperLog.hpp"

#include <gtest/gtest.h>

namespace sorrel::helper {
namespace {

using std::chrono::seconds;

TEST(HelperLog, aForeignTextIsOneFieldOfOneLine) {
  EXPECT_EQ(escapedForLog("/plain path -rf %20$(x)"), "/plain path -rf %20$(x)");
  EXPECT_EQ(escapedForLog("a\nb\r\t\x1b[0m"), "a\\x0ab\\x0d\\x09\\x1b[0m");
  EXPECT_EQ(escapedForLog("\" why=\"\\x0a"), "\\x22 why=\\x22\\x5cx0a");
  EXPECT_EQ(escapedForLog(std::string("\0\x7f\xc3\xa9\xff", 5)), "\\x00\\x7f\\xc3\\xa9\\xff");
}

TEST(HelperLog, aLongTextIsCut) {
  EXPECT_EQ(escapedForLog(std::string(kMostEscaped, 'x')), std::string(kMostEscaped, 'x'));
  EXPECT_EQ(escapedForLog(std::string(kMostEscaped + 1, 'x')), std::string(kMostEscaped, 'x') + "...");
}

TEST(RateLimit, letsABurstThroughInEachInterval) {
  RateLimit limit(2, seconds(10));
  const RateLimit::Clock::time_point start = RateLimit::Clock::now();
  EXPECT_TRUE(limit.admits(start));
  EXPECT_TRUE(limit.admits(start + seconds(9)));
  EXPECT_FALSE(limit.admits(start + seconds(9)));
  EXPECT_FALSE(limit.admits(start + seconds(9)));
  EXPECT_TRUE(limit.admits(start + seconds(10)));
  EXPECT_EQ(limit.takeHeldBack(), 2U);
  EXPECT_EQ(limit.takeHeldBack(), 0U);
  EXPECT_TRUE(limit.admits(start + seconds(19)));
  EXPECT_FALSE(limit.admits(start + seconds(19)));
}

}  // namespace
}  // namespace sorrel::helper
