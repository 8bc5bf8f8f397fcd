// The selection made by ticks in each shape of tree.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "SorrelFramework/Selection/RecordHolders.hpp"
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

/// A category without records of its own, with these rows below it.
void hang(const Ref<CategoryInformation>& category, const std::vector<Ref<CategoryInformation>>& rows) {
  category->childrenCateogry = Children<CategoryInformation>(rows);
}

TEST_F(TicksTest, recordsOfRowsAreTickedAndTakenOnce) {
  const auto writer = makeCategory(stage_.feature, kOff, {file("writer"), file("writer.conf")});
  const auto player = makeCategory(stage_.feature, kOff, {file("player")});
  const auto all = add("All", {});
  const auto unused = add("Unused", {});
  hang(all, {writer, player});
  hang(unused, {player});
  select({path("writer.conf"), path("player")});
  EXPECT_EQ(selected(TreeShape::Rows), Names({"writer.conf", "player"}));
  EXPECT_EQ(writer->state, kMixed);
  EXPECT_EQ(player->state, kOn);
  EXPECT_EQ(all->state, kMixed);
  EXPECT_EQ(unused->state, kOn);
  tickAll(feature());
  EXPECT_EQ(except({path("player")}), Names());
  EXPECT_EQ(selected(TreeShape::Rows), Names({"writer", "writer.conf"}));
  EXPECT_EQ(unused->state, kOff);
}

TEST_F(TicksTest, rowsThatListRecordsAgainAreNoHolders) {
  const auto record = file("a");
  const auto all = add("All", {record});
  hang(all, {makeCategory(stage_.feature, kOff, {record})});
  EXPECT_EQ(recordHolders(feature()), std::vector<CategoryInformation*>{&*all});
}

TEST_F(TicksTest, detailsOfAllCategoriesAreSelectedAndNoGroup) {
  add("Browser", {titled("History", {titled("one"), titled("two")}), titled("Cookies")});
  add("Recent", {titled("Files", {titled("three")})});
  tickAll(feature());
  EXPECT_EQ(selected(TreeShape::Details), Names({"one", "two", "three"}));
  select({"History/two", "Files"});
  EXPECT_EQ(selected(TreeShape::Details), Names({"two", "three"}));
}

}  // namespace
}  // namespace sorrel
