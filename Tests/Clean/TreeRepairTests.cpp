#include "SorrelFramework/Clean/TreeRepair.hpp"

#include <gtest/gtest.h>

#include <utility>

#include "SorrelFramework/Clean/CleanServiceType.hpp"

namespace sorrel {
namespace {

TEST(TreeRepair, commonHasNoneOfItsOwnHere) {
  const TreeRepairResult result = treeRepair(CleanServiceType::Common)({}, {});
  EXPECT_EQ(result.size, 0);
  EXPECT_TRUE(result.abnormalFiles.empty());
  EXPECT_EQ(result.desc, "");
  EXPECT_FALSE(result.categorys.has_value());
}

TEST(TreeRepair, registeredRepairTakesThePlaceOfTheOneBefore) {
  auto original = registerTreeRepair(CleanServiceType::Similar, [](const auto&, const auto&) {
    return TreeRepairResult{1, {}, "", {}};
  });
  auto first = registerTreeRepair(CleanServiceType::Similar, [](const auto&, const auto&) {
    return TreeRepairResult{2, {}, "", {}};
  });
  EXPECT_EQ(first({}, {}).size, 1);
  EXPECT_EQ(treeRepair(CleanServiceType::Similar)({}, {}).size, 2);
  registerTreeRepair(CleanServiceType::Similar, nullptr);
  EXPECT_EQ(treeRepair(CleanServiceType::Similar)({}, {}).size, 0);
  registerTreeRepair(CleanServiceType::Similar, std::move(original));
}

}  // namespace
}  // namespace sorrel
