// Ticks on scanned trees, and what a clean of each shape of tree makes of them.
#include "Host/Ticks.hpp"

#include <fnmatch.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "Host/CleanFeatures.hpp"
#include "Host/CleanSession.hpp"
#include "Host/CommandError.hpp"
#include "Host/Globs.hpp"
#include "Host/StopSwitch.hpp"
#include "Tests/Support/CleanKit.hpp"

namespace sorrel::cli {
namespace {

using test::kDeleteSuccess;
using test::kMixed;
using test::kOff;
using test::kOn;
using test::makeCategory;
using test::makeRecord;
using Names = std::vector<std::string>;
using Records = std::vector<Ref<FileInformation>>;

class TicksTest : public testing::Test {
 protected:
  Ref<FileInformation> file(const std::string& name, const Records& childrens = {}) {
    return makeRecord({stage_.volume.url(name), kOff, 1, true, childrens, made_++});
  }
  Ref<FileInformation> realFile(const std::string& name) {
    stage_.volume.file(name, name);
    return file(name);
  }
  /// A record without a file: a group, or a trace.
  Ref<FileInformation> titled(const std::string& title, const Records& childrens = {}) {
    auto record = makeRecord({URL(), kOff, 1, true, childrens, made_++});
    record->title = title;
    return record;
  }
  Ref<CategoryInformation> add(const std::string& title, const Records& records) {
    auto category = makeCategory(stage_.feature, kOff, records);
    category->title = title;
    stage_.feature->categoryInfo.push_back(category);
    return category;
  }
  [[nodiscard]] std::string path(const std::string& name) const { return stage_.volume.path(name); }
  FeatureInformation& feature() { return *stage_.feature; }
  void select(Names globs) {
    Globs patterns(std::move(globs));
    tickMatching(feature(), patterns);
  }
  /// Titles of the leaves that a clean of that shape would remove.
  Names selected(CleanEntry entry = CleanEntry::Categories) {
    Names titles;
    for (const auto& leaf : leavesOf(tickedRecords(entry, feature()))) titles.push_back(leaf->title);
    return titles;
  }

  test::CleanStage stage_;
  Integer made_ = 0;
};

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
  EXPECT_EQ(selected(CleanEntry::Groups), Names({"photo.jpg"}));
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

// Shapes of trees

TEST_F(TicksTest, groupsThemselvesAreNeverSelected) {
  const auto first = titled("first", {file("a"), file("b")});
  const auto empty = titled("empty");
  add("Duplicates", {first, empty});
  tickAll(feature());
  EXPECT_EQ(selected(CleanEntry::Groups), Names({"a", "b"}));
}

TEST_F(TicksTest, flatTreesTakeTheRecordsOfTheFirstCategory) {
  add("All", {file("a"), file("d/", {file("d/b"), file("d/c")})});
  add("Other", {file("e")});
  select({path("a"), path("d/b"), path("e")});
  EXPECT_EQ(selected(CleanEntry::Flat), Names({"a"}));
}

TEST_F(TicksTest, aSelectionOfEveryCopyIsRefusedWithTheGroupsNamed) {
  add("Duplicates",
      {titled("one", {realFile("a"), realFile("b")}), titled("two", {realFile("c"), realFile("d")}),
       titled("three", {realFile("e"), realFile("f")}), titled("none")});
  const CleanFeature& duplicates = *cleanFeature(7);
  select({path("[abce]"), path("f"), "none"});
  try {
    refuseWholeGroups(duplicates, feature());
    FAIL() << "not refused";
  } catch (const CommandError& error) {
    EXPECT_EQ(error.status(), ExitStatus::WrongUse);
    EXPECT_STREQ(error.what(),
                 "nothing was removed, as every copy would have gone of 'one', 'three'; --even-last-copy "
                 "allows that.");
  }
  select({path("[ace]")});
  EXPECT_NO_THROW(refuseWholeGroups(duplicates, feature()));
  tickAll(feature());
  EXPECT_NO_THROW(refuseWholeGroups(*cleanFeature(2), feature()));
}

TEST_F(TicksTest, eachFeatureIsCleanedByItsEntry) {
  struct Row {
    Integer finderID;
    CleanEntry entry;
    CleanServiceType type;
  };
  for (const Row& row : {Row{1, CleanEntry::Categories, CleanServiceType::Common},
                         Row{2, CleanEntry::Categories, CleanServiceType::Common},
                         Row{3, CleanEntry::Flat, CleanServiceType::LargeAndOldFile},
                         Row{4, CleanEntry::Categories, CleanServiceType::Common},
                         Row{5, CleanEntry::Categories, CleanServiceType::Common},
                         Row{6, CleanEntry::Categories, CleanServiceType::Common},
                         Row{7, CleanEntry::Groups, CleanServiceType::Duplicate},
                         Row{8, CleanEntry::Groups, CleanServiceType::Similar}}) {
    const CleanFeature* const found = cleanFeature(row.finderID);
    ASSERT_NE(found, nullptr) << row.finderID;
    EXPECT_EQ(found->entry, row.entry) << row.finderID;
    EXPECT_EQ(found->type, row.type) << row.finderID;
  }
  for (const Integer other : {0, 9, 10, 11, 12, 13}) EXPECT_EQ(cleanFeature(other), nullptr) << other;
}

TEST_F(TicksTest, whatIsSelectedIsWhatEachEntryRemoves) {
  const test::UnrepairedLargeFiles unrepaired;
  for (const Integer finderID : {2, 3, 7}) {
    feature().categoryInfo.clear();
    const CleanFeature& row = *cleanFeature(finderID);
    add("All", {titled("one", {realFile("a"), realFile("b")}), realFile("c"), realFile("d")});
    select({path("[ac]")});
    Names expected;
    for (const auto& leaf : leavesOf(tickedRecords(row.entry, feature()))) {
      expected.push_back(leaf->url.path().substr(path("").size()));
    }
    const auto before = test::snapshotOf(stage_.volume.path());
    StopSwitch stop;
    FileRecords handed;
    const auto result =
        runClean(row, stage_.feature, stop, [&handed](const FileRecords& records) { handed = records; });
    ASSERT_TRUE(result);
    EXPECT_EQ(test::goneBetween(before, test::snapshotOf(stage_.volume.path())), expected) << finderID;
    EXPECT_FALSE(expected.empty()) << finderID;
    Names told;
    for (const auto& leaf : leavesOf(handed)) {
      EXPECT_EQ(leaf->deleteStatus, kDeleteSuccess);
      told.push_back(leaf->title);
    }
    EXPECT_EQ(told, expected) << finderID;
  }
}

TEST_F(TicksTest, aCleanThatWasStoppedBeforeItBeganRemovesNothing) {
  add("All", {realFile("a")});
  tickAll(feature());
  const auto before = test::snapshotOf(stage_.volume.path());
  StopSwitch stop;
  stop.pull();
  EXPECT_FALSE(runClean(*cleanFeature(2), stage_.feature, stop, [](const FileRecords&) { FAIL(); }));
  EXPECT_EQ(test::snapshotOf(stage_.volume.path()), before);
}

// Random trees against the rule told another way: a leaf goes if it, or a record above it, is matched.

class RandomTree {
 public:
  explicit RandomTree(unsigned seed) : random_(seed) {}

  int pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(random_); }

  Ref<FileInformation> record(const std::string& above, int depth) {
    const std::string path = above + "/" + std::string(1, static_cast<char>('a' + pick(4)));
    Records childrens;
    if (depth > 0 && pick(2) == 0) {
      for (int i = pick(4); i >= 0; --i) childrens.push_back(record(path, depth - 1));
    }
    return makeRecord({URL::fileURL(path, !childrens.empty()), kOff, 1, true, childrens, ++made_});
  }

  std::string glob() {
    static const Names pieces = {"/", "a", "b", "c", "d", "*", "?", "[ab]", "/*", "*/"};
    std::string text = pick(2) == 0 ? "*" : "/";
    for (int i = pick(4); i >= 0; --i) text += pieces[static_cast<std::size_t>(pick(10))];
    return text;
  }

 private:
  std::mt19937 random_;
  Integer made_ = 0;
};

void collectExpected(FileInformation& record, const Names& globs, bool above, std::set<Integer>& ids) {
  const std::string path = record.url.path();
  const bool isMatched = above || std::ranges::any_of(globs, [&](const std::string& glob) {
                           return ::fnmatch(glob.c_str(), path.c_str(), 0) == 0;
                         });
  if (record.childrens.empty() && isMatched) ids.insert(record.finderID);
  for (FileInformation& child : record.childrens) collectExpected(child, globs, isMatched, ids);
}

TEST_F(TicksTest, randomTreesLoseWhatIsMatchedAndNothingElse) {
  std::size_t selections = 0;
  for (unsigned seed = 0; seed < 400; ++seed) {
    RandomTree random(seed);
    feature().categoryInfo.clear();
    for (int i = random.pick(3); i >= 0; --i) {
      Records records;
      for (int j = random.pick(5); j > 0; --j) records.push_back(random.record("", 3));
      add("Row", records);
    }
    Names globs;
    for (int i = random.pick(3); i >= 0; --i) globs.push_back(random.glob());
    std::set<Integer> expected;
    for (CategoryInformation& category : feature().categoryInfo) {
      for (FileInformation& record : category.childrens) collectExpected(record, globs, false, expected);
    }
    select(globs);
    std::set<Integer> found;
    for (const auto& leaf : leavesOf(tickedRecords(CleanEntry::Categories, feature()))) {
      found.insert(leaf->finderID);
    }
    EXPECT_EQ(found, expected) << "seed " << seed << testing::PrintToString(globs);
    for (const CategoryInformation& category : feature().categoryInfo) {
      if (category.state != kOn) continue;
      for (const FileInformation& record : category.childrens) EXPECT_EQ(record.state, kOn) << seed;
    }
    if (!expected.empty()) ++selections;
  }
  EXPECT_GT(selections, 100U);
}

}  // namespace
}  // namespace sorrel::cli
