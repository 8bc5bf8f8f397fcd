// Random trees compared with another formulation of the rule: a leaf is removed if it, or a record above it,
// is matched.
#include <fnmatch.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <set>
#include <string>

#include "Tests/Selection/TicksKit.hpp"

namespace sorrel {
namespace {

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
    for (const auto& leaf : leavesOf(tickedRecords(TreeShape::Categories, feature()))) {
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
}  // namespace sorrel
