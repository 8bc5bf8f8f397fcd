// Ticks on scanned trees.
#include "SorrelFramework/Selection/Ticks.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "SorrelFramework/Selection/Globs.hpp"
#include "Tests/Selection/TicksKit.hpp"
#include "Tests/Support/ActingAsPlainUser.hpp"

namespace sorrel {
namespace {

TEST_F(TicksTest, whatTheCatalogueHadTickedIsCleared) {
  const auto leaf = file("d/a");
  const auto folder = file("d/", {leaf});
  const auto all = add("All", {folder});
  const auto child = makeCategory(stage_.feature, kOn, {folder});
  all->childrenCateogry = Children<CategoryInformation>{child};
  for (const auto& record : {leaf, folder}) record->state = kOn;
  all->state = feature().state = kOn;
  clearTicks(feature());
  EXPECT_EQ(leaf->state, kOff);
  EXPECT_EQ(folder->state, kOff);
  EXPECT_EQ(all->state, kOff);
  EXPECT_EQ(child->state, kOff);
  EXPECT_EQ(feature().state, kOff);
}

TEST_F(TicksTest, selectionClearsWhatTheCatalogueHadTicked) {
  const auto a = file("a");
  const auto b = file("b");
  const auto all = add("All", {a, b});
  a->state = all->state = kOn;
  select({path("b")});
  EXPECT_EQ(a->state, kOff);
  EXPECT_EQ(b->state, kOn);
  EXPECT_EQ(all->state, kMixed);
}

TEST_F(TicksTest, allTicksEveryLevel) {
  const auto leaf = file("d/a");
  const auto folder = file("d/", {leaf});
  const auto full = add("Full", {folder});
  const auto empty = add("Empty", {});
  tickAll(feature());
  for (const Integer state : {leaf->state, folder->state, full->state, empty->state, feature().state}) {
    EXPECT_EQ(state, kOn);
  }
}

TEST_F(TicksTest, rowsAbovePartOfTheirRecordsAreMixed) {
  const auto a = file("d/a");
  const auto b = file("d/b");
  const auto folder = file("d/", {a, b});
  const auto other = file("other");
  const auto first = add("First", {folder, other});
  const auto second = add("Second", {file("c")});
  select({path("d/a")});
  EXPECT_EQ(a->state, kOn);
  EXPECT_EQ(b->state, kOff);
  EXPECT_EQ(folder->state, kMixed);
  EXPECT_EQ(other->state, kOff);
  EXPECT_EQ(first->state, kMixed);
  EXPECT_EQ(second->state, kOff);
  EXPECT_EQ(feature().state, kMixed);
}

TEST_F(TicksTest, rowsAboveAllOfTheirRecordsAreOn) {
  const auto folder = file("d/", {file("d/a"), file("d/b")});
  const auto first = add("First", {folder});
  const auto second = add("Second", {});
  select({path("d/?")});
  EXPECT_EQ(folder->state, kOn);
  EXPECT_EQ(first->state, kOn);
  EXPECT_EQ(second->state, kOff);
  EXPECT_EQ(feature().state, kMixed);
}

TEST_F(TicksTest, aMatchedFolderTakesWhatLiesBelowIt) {
  const auto leaf = file("d/e/a");
  add("All", {file("d/", {file("d/e/", {leaf})}), file("f")});
  select({path("d")});
  EXPECT_EQ(leaf->state, kOn);
  EXPECT_EQ(selected(), Names({"a"}));
}

TEST_F(TicksTest, aGlobFitsTheWholePathOrNothing) {
  add("All", {file("d/name"), file("d/named"), file("name")});
  select({"name", "/name", path("d"), path("d/"), path("d/nam")});
  EXPECT_EQ(selected(), Names());
  select({path("d/name")});
  EXPECT_EQ(selected(), Names({"name"}));
}

TEST_F(TicksTest, aStarMeetsSlashesAndDots) {
  add("All", {file("d/e/.hidden"), file("d.x")});
  select({path("d/*")});
  EXPECT_EQ(selected(), Names({".hidden"}));
}

TEST_F(TicksTest, globsSeeBytes) {
  add("All", {file("\xc3\xb6"), file("\xff"), file("x")});
  select({path("??")});
  EXPECT_EQ(selected(), Names({"\xc3\xb6"}));
  select({path("?")});
  EXPECT_EQ(selected(), Names({"\xff", "x"}));
  select({path("\xff")});
  EXPECT_EQ(selected(), Names({"\xff"}));
}

TEST_F(TicksTest, bracketsAndBackslashesHaveTheirMeaning) {
  add("All", {file("a"), file("b"), file("c"), file("*")});
  select({path("[ab]")});
  EXPECT_EQ(selected(), Names({"a", "b"}));
  select({path("[!ab]")});
  EXPECT_EQ(selected(), Names({"c", "*"}));
  select({path("\\*")});
  EXPECT_EQ(selected(), Names({"*"}));
}

TEST_F(TicksTest, aPathWithANulIsNoShorterPath) {
  const auto record = makeRecord({*URL::parse("file:///d/a%00b"), kOff, 1, true, {}, 0});
  add("All", {record});
  select({"/d/a", "/d/a*", "*"});
  EXPECT_EQ(record->state, kOff);
}

TEST_F(TicksTest, aRecordWithAPathHasNoOtherName) {
  add("Row", {file("d/", {file("d/a")})});
  select({"a", "d", "d/a", "Row/d", "Row/d/a"});
  EXPECT_EQ(selected(), Names());
}

TEST_F(TicksTest, aRecordWithoutAPathIsMatchedByItsTitle) {
  const auto web = makeRecord({*URL::parse("https://example.org/a"), kOff, 1, true, {}, 9});
  web->title = "Example";
  add("Row", {titled("one"), titled("two"), web});
  select({"o*"});
  EXPECT_EQ(selected(), Names({"one"}));
  select({"Example"});
  EXPECT_EQ(selected(), Names({"Example"}));
}

TEST_F(TicksTest, aRowOfAGroupIsNamedWithTheGroup) {
  const auto cookies = titled("Cookies", {titled("a.example"), titled("b.example")});
  const auto visits = titled("Visit", {titled("a.example")});
  const auto chrome = add("Chrome", {cookies, visits});
  const auto safari = add("Safari", {titled("Cookies", {titled("a.example")})});
  select({"Chrome/Cookies/*"});
  EXPECT_EQ(cookies->state, kOn);
  EXPECT_EQ(visits->state, kOff);
  EXPECT_EQ(chrome->state, kMixed);
  EXPECT_EQ(safari->state, kOff);
  select({"Visit/a.example"});
  EXPECT_EQ(visits->state, kOn);
  EXPECT_EQ(cookies->state, kOff);
}

TEST_F(TicksTest, aGlobForFilesTakesNoGroupOfThatName) {
  const auto group = titled("photo.jpg", {file("x/photo.jpg"), file("y/copy.jpg")});
  add("Duplicates", {group});
  select({"*/photo.jpg"});
  EXPECT_EQ(group->state, kMixed);
  EXPECT_EQ(selected(TreeShape::Groups), Names({"photo.jpg"}));
}

TEST_F(TicksTest, globsThatFitNothingAreKnown) {
  add("All", {file("d/", {file("d/a")}), file("b")});
  Globs globs({path("d"), path("d/a"), path("c"), "b"});
  tickMatching(feature(), globs);
  EXPECT_EQ(globs.unused(), Names({path("c"), "b"}));
}

TEST_F(TicksTest, childCategoriesFollowTheRecordsThatTheyListAgain) {
  const auto a = file("a");
  const auto b = file("b");
  const auto all = add("All", {a, b});
  const auto ofA = makeCategory(stage_.feature, kOff, {a});
  const auto ofB = makeCategory(stage_.feature, kOff, {b});
  all->childrenCateogry = Children<CategoryInformation>{ofA, ofB};
  select({path("a")});
  EXPECT_EQ(all->state, kMixed);
  EXPECT_EQ(ofA->state, kOn);
  EXPECT_EQ(ofB->state, kOff);
}

TEST_F(TicksTest, exceptionsTakeTheTickOffWhatTheyName) {
  const auto all = add("All", {file("a"), file("d/", {file("d/b"), file("d/c")}), file("e")});
  tickAll(feature());
  EXPECT_EQ(except({path("a"), path("d/b")}), Names());
  EXPECT_EQ(selected(), (Names{"c", "e"}));
  EXPECT_EQ(all->state, kMixed);
  EXPECT_EQ(feature().state, kMixed);
}

TEST_F(TicksTest, exceptionsKeepTheOtherTicks) {
  add("All", {file("a"), file("b"), file("c")});
  select({path("a"), path("b")});
  EXPECT_EQ(except({path("b"), path("c")}), Names());
  EXPECT_EQ(selected(), Names{"a"});
}

TEST_F(TicksTest, exceptionsThatFitNothingAreKnown) {
  stage_.volume.file("d/sub/keep", "1");
  stage_.volume.file("off/other", "1");
  add("All", {file("a"), file("d/", {file("d/b")}), file("off/")});
  select({path("a"), path("d")});
  Globs globs({path("d"), path("d/b"), path("d/sub/keep"), path("off"), path("off/other"), path("c"), "a"});
  untickMatching(feature(), globs);
  EXPECT_EQ(globs.unused(), (Names{path("off/other"), path("c"), "a"}));
}

TEST_F(TicksTest, letterCaseOfPatternsCanBeIgnored) {
  add("All", {file("Ärger/Keep"), file("other")});
  tickAll(feature());
  Globs globs({{"*/ärger/[k]EEP", {"*/ärger/[k]EEP"}}}, Globs::LetterCase::Ignored);
  untickMatching(feature(), globs);
  EXPECT_EQ(globs.unused(), Names());
  EXPECT_EQ(selected(), Names{"other"});
}

TEST_F(TicksTest, exceptionOfAFolderKeepsWhatLiesInIt) {
  add("All", {file("d/a"), file("d/sub/b"), file("dd/c")});
  tickAll(feature());
  EXPECT_EQ(except({path("d")}), Names());
  EXPECT_EQ(selected(), Names{"c"});
}

TEST_F(TicksTest, folderThatHoldsAnExceptionOnTheDiskIsLeftWhole) {
  stage_.volume.file("d/sub/keep", "1");
  stage_.volume.file("e/sub/other", "1");
  add("All", {file("d/"), file("e/")});
  add("More", {file("d/sub/other"), file("d.txt")});
  tickAll(feature());
  EXPECT_EQ(except({"*/keep"}), Names{path("d")});
  EXPECT_EQ(selected(), (Names{"e", "d.txt"}));
}

TEST_F(TicksTest, folderWithRecordsBelowItIsLeftWholeToo) {
  stage_.volume.file("d/keep", "1");
  add("All", {file("d/", {file("d/a"), file("d/b")})});
  tickAll(feature());
  EXPECT_EQ(except({"*/keep"}), Names{path("d")});
  EXPECT_EQ(selected(), Names());
}

TEST_F(TicksTest, linkToAFolderThatHoldsAnExceptionKeepsItsTick) {
  stage_.volume.file("d/keep", "1");
  std::filesystem::create_directory_symlink(path("d"), path("link"));
  add("All", {file("link")});
  tickAll(feature());
  EXPECT_EQ(except({"*/keep"}), Names());
  EXPECT_EQ(selected(), Names{"link"});
}

TEST_F(TicksTest, folderThatCannotBeSearchedIsLeftWhole) {
  stage_.volume.file("d/closed/a", "1");
  std::filesystem::permissions(path("d/closed"), std::filesystem::perms::none);
  add("All", {file("d/")});
  // In the first case not even its type can be read.
  for (const auto rights : {std::filesystem::perms::none, std::filesystem::perms::all}) {
    std::filesystem::permissions(stage_.volume.path(), rights);
    tickAll(feature());
    Names left;
    {
      const test::ActingAsPlainUser plain;
      left = except({"*/keep"});
    }
    std::filesystem::permissions(stage_.volume.path(), std::filesystem::perms::all);
    EXPECT_EQ(left, Names{path("d")});
  }
  std::filesystem::permissions(path("d/closed"), std::filesystem::perms::all);
}

TEST_F(TicksTest, exceptionsNameRecordsWithoutAPathByTheirTitles) {
  add("All", {titled("Group", {file("a"), titled("trace")}), titled("Other", {titled("trace")})});
  tickAll(feature());
  EXPECT_EQ(except({"Group/trace"}), Names());
  EXPECT_EQ(selected(), (Names{"a", "trace"}));
  EXPECT_EQ(except({"Other"}), Names());
  EXPECT_EQ(selected(), Names{"a"});
}

}  // namespace
}  // namespace sorrel
