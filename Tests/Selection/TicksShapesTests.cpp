// What the ticks select in each shape of tree.
#include <gtest/gtest.h>

#include "Tests/Selection/TicksKit.hpp"

namespace sorrel {
namespace {

TEST_F(TicksTest, groupsThemselvesAreNeverSelected) {
  const auto first = titled("first", {file("a"), file("b")});
  const auto empty = titled("empty");
  add("Duplicates", {first, empty});
  tickAll(feature());
  EXPECT_EQ(selected(TreeShape::Groups), Names({"a", "b"}));
}

TEST_F(TicksTest, flatTreesTakeTheRecordsOfTheFirstCategory) {
  add("All", {file("a"), file("d/", {file("d/b"), file("d/c")})});
  add("Other", {file("e")});
  select({path("a"), path("d/b"), path("e")});
  EXPECT_EQ(selected(TreeShape::Flat), Names({"a"}));
}

}  // namespace
}  // namespace sorrel
