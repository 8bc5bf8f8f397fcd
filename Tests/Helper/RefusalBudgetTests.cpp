#include "Helper/RefusalBudget.hpp"

#include <gtest/gtest.h>

#include <cstdint>

namespace sorrel::helper {
namespace {

TEST(RefusalBudget, isOfEachUserAndForGood) {
  RefusalBudget budget;
  EXPECT_TRUE(budget.take(1, RefusalBudget::kOfUser - 1));
  EXPECT_FALSE(budget.take(1, 2));
  EXPECT_TRUE(budget.take(1, 1)) << "what was refused took nothing";
  EXPECT_FALSE(budget.take(1, 1));
  EXPECT_TRUE(budget.take(1, 0));
  EXPECT_TRUE(budget.take(2, RefusalBudget::kOfUser));
}

TEST(RefusalBudget, noSizeIsTooLargeToCompare) {
  RefusalBudget budget;
  EXPECT_TRUE(budget.take(1, 1));
  EXPECT_FALSE(budget.take(1, SIZE_MAX));
}

}  // namespace
}  // namespace sorrel::helper
