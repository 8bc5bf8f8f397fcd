#include "SorrelFramework/Platform/Date.hpp"

#include <gtest/gtest.h>

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

TEST(Date, epochOfPropertyListsIs2001) {
  constexpr int leapDays = 8;  // 1972 to 2000
  EXPECT_EQ(kSecondsFrom1970To2001, (31 * 365 + leapDays) * 86400.0);
}

}  // namespace
}  // namespace sorrel
