#include "SorrelFramework/Platform/Base/Date.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace sorrel {
namespace {

TEST(Date, defaultIsTheStartOf1970) { EXPECT_EQ(Date().secondsSince1970, 0); }

TEST(Date, ordersByTime) {
  EXPECT_LT(Date{-1}, Date{0});
  EXPECT_GT(Date{1e15}, Date{1e9});
  EXPECT_EQ(Date{0.5}, Date{0.5});
  EXPECT_NE(Date{0.5}, Date{0.25});
}

TEST(Date, nowIsInThisCentury) {
  EXPECT_GT(Date::now(), Date{946684800});
  EXPECT_LT(Date::now(), Date{4102444800});
}

TEST(Date, isoTextIsInUTCAndRoundsDown) {
  EXPECT_EQ(isoText(Date{0}), "1970-01-01T00:00:00Z");
  EXPECT_EQ(isoText(Date{1795304752.99}), "2026-11-21T23:45:52Z");
  EXPECT_EQ(isoText(Date{-0.5}), "1969-12-31T23:59:59Z");
}

TEST(Date, isoTextKnowsTheYearsOfFourDigits) {
  EXPECT_EQ(isoText(Date{-62135596800.0}), "0001-01-01T00:00:00Z");
  EXPECT_FALSE(isoText(Date{-62135596800.5}));
  EXPECT_EQ(isoText(Date{253402300799.5}), "9999-12-31T23:59:59Z");
  EXPECT_FALSE(isoText(Date{253402300800.0}));
  EXPECT_FALSE(isoText(Date{std::nan("")}));
}

TEST(Date, epochOfPropertyListsIs2001) {
  constexpr int leapDays = 8;  // 1972 to 2000
  EXPECT_EQ(kSecondsFrom1970To2001, (31 * 365 + leapDays) * 86400.0);
}

}  // namespace
}  // namespace sorrel
