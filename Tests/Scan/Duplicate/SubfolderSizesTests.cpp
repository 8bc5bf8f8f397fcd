#include "SorrelFramework/Scan/Duplicate/SubfolderSizes.hpp"

#include <gtest/gtest.h>

namespace sorrel {
namespace {

using Sizes = std::unordered_set<std::int64_t>;

/// A folder a containing b, and b containing c; beside them d.
std::shared_ptr<const WalkedSizes> walk() {
  auto sizes = std::make_shared<WalkedSizes>();
  sizes->folders = {{3, 0}, {5, 0}, {8, 0}, {1, 3}};  // c, b, a, d
  return sizes;
}

TEST(SubfolderSizes, isEmptyByDefault) {
  const SubfolderSizes sizes;
  EXPECT_TRUE(sizes.empty());
  EXPECT_FALSE(sizes.contains(0));
  EXPECT_TRUE(sizes.values().empty());
}

TEST(SubfolderSizes, holdsTheFoldersBelowAtAnyDepth) {
  const SubfolderSizes below(walk(), 0, 2);
  EXPECT_EQ(below.values(), (Sizes{3, 5}));
  EXPECT_TRUE(below.contains(3));
  EXPECT_FALSE(below.contains(8));
  EXPECT_FALSE(below.empty());
}

TEST(SizeUnion, holdsWhatWasInsertedInAnyOrder) {
  const auto sizes = walk();
  const SubfolderSizes ofRoot(sizes, 0, 4);
  const SubfolderSizes ofA(sizes, 0, 2);
  const SubfolderSizes ofB(sizes, 0, 1);
  for (const auto& order : {std::vector{ofRoot, ofA, ofB}, std::vector{ofB, ofA, ofRoot}}) {
    SizeUnion all;
    for (const SubfolderSizes& one : order) all.insert(one);
    for (const std::int64_t size : {3, 5, 8, 1}) EXPECT_TRUE(all.contains(size)) << size;
    EXPECT_FALSE(all.contains(2));
  }
}

TEST(SizeUnion, holdsNoFolderThatOnlyLiesBeside) {
  SizeUnion all;
  all.insert(SubfolderSizes(walk(), 0, 2));
  EXPECT_FALSE(all.contains(1));
  EXPECT_FALSE(all.contains(8));
}

TEST(SizeUnion, chainOfManyFoldersIsGoneThroughOnce) {
  constexpr std::size_t kDepth = 200'000;
  auto chain = std::make_shared<WalkedSizes>();
  for (std::size_t i = 0; i < kDepth; ++i) chain->folders.push_back({static_cast<std::int64_t>(i), 0});
  SizeUnion all;
  // In quadratic time this would take minutes.
  for (std::size_t i = kDepth; i > 0; --i) all.insert(SubfolderSizes(chain, 0, i));
  EXPECT_TRUE(all.contains(kDepth - 1));
}

}  // namespace
}  // namespace sorrel
