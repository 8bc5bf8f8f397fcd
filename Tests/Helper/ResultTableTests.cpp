#include "Helper/ResultTable.hpp"

#include <gtest/gtest.h>

namespace sorrel::helper {
namespace {

using Error = HelperEventErrorID;

TEST(ResultTable, anUnknownEntryIsWhatTheAskerSays) {
  const ResultTable table(2);
  EXPECT_EQ(table.entries(), 2U);
  EXPECT_FALSE(table.isKnown(1));
  EXPECT_FALSE(table.isSuccess(1));
  EXPECT_EQ(table.status(1, Error::MoveFail), Error::MoveFail);
  EXPECT_EQ(table.text(1, "otherwise"), "otherwise");
}

TEST(ResultTable, theFirstResultHolds) {
  ResultTable table(1);
  table.set(0, Error::DeleteError, "first");
  table.set(0, Error::Success, "");
  EXPECT_EQ(table.status(0, Error::NoCause), Error::DeleteError);
  EXPECT_EQ(table.text(0, ""), "first");
  EXPECT_EQ(table.successes(), 0U);
}

TEST(ResultTable, textsOfManyEntriesStayApart) {
  constexpr std::size_t kCount = 1000;  // more than are shared
  ResultTable table(kCount);
  for (std::size_t i = 0; i < kCount; ++i) {
    table.set(i, i % 3 == 0 ? Error::Success : Error::DeleteError, "text " + std::to_string(i / 2));
  }
  for (std::size_t i = 0; i < kCount; ++i) {
    EXPECT_EQ(table.text(i, "-"), i % 3 == 0 ? "-" : "text " + std::to_string(i / 2)) << i;
  }
  EXPECT_EQ(table.successes(), 334U);
}

TEST(ResultTable, textsBeyondTheirCapAreLeftOutAndTheirStatusIsNot) {
  const std::string base(500, 'x');
  constexpr std::size_t kCount = ResultTable::kMostTextBytes / 512 + 3000;
  ResultTable table(kCount);
  for (std::size_t i = 0; i < kCount; ++i)
    table.set(i, Error::ShreadFail, base + std::to_string(1'000'000 + i));
  EXPECT_EQ(table.text(kCount - 1, "short"), "short");
  EXPECT_EQ(table.status(kCount - 1, Error::NoCause), Error::ShreadFail);
  EXPECT_EQ(table.text(0, "short"), base + "1000000");
}

TEST(ResultTable, countsTheSuccessesThatCameWithAText) {
  ResultTable table(3);
  table.set(0, HelperEventErrorID::Success, "not overwritten");
  table.set(1, HelperEventErrorID::Success, "");
  table.set(2, HelperEventErrorID::DeleteError, "why");
  EXPECT_EQ(table.remarks(), 1U);
  EXPECT_EQ(table.text(0, "none"), "none");
}

}  // namespace
}  // namespace sorrel::helper
