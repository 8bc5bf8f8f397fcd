#include "SorrelFramework/Selection/RecordWalk.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "Tests/Support/CleanKit.hpp"

namespace sorrel {
namespace {

using test::makeRecord;

Ref<FileInformation> node(const std::string& name, const std::vector<Ref<FileInformation>>& childrens = {}) {
  return makeRecord({URL::fileURL("/" + name, false), 1, 1, true, childrens});
}

TEST(RecordWalk, leavesComeInOrderAndParentsBehindTheirChildren) {
  const auto top = node("top", {node("a"), node("b", {node("c"), node("d")}), node("e")});
  std::vector<std::string> seen;
  const Integer sum = sumOfLeaves(
      *top,
      [&](FileInformation& leaf) {
        seen.push_back(leaf.title);
        return Integer{leaf.title == "a" || leaf.title == "d" ? 1 : 0};
      },
      [&](FileInformation& parent, Integer below) {
        seen.push_back(parent.title + "=" + std::to_string(below));
      });
  EXPECT_EQ(sum, 2);
  EXPECT_EQ(seen, (std::vector<std::string>{"a", "c", "d", "b=1", "e", "top=2"}));
}

TEST(RecordWalk, recordWithoutChildrenIsALeafItself) {
  int parents = 0;
  EXPECT_EQ(sumOfLeaves(
                *node("a"), [](FileInformation&) { return Integer{7}; },
                [&](FileInformation&, Integer) { ++parents; }),
            7);
  EXPECT_EQ(parents, 0);
}

TEST(RecordWalk, neitherOnNorOffIsMixed) {
  EXPECT_TRUE(isMixed(NSControlStateValueMixed));
  EXPECT_TRUE(isMixed(2));
  EXPECT_FALSE(isMixed(NSControlStateValueOn));
  EXPECT_FALSE(isMixed(NSControlStateValueOff));
}

}  // namespace
}  // namespace sorrel
