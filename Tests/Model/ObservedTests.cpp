#include "SorrelFramework/Model/Observed.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace sorrel {
namespace {

/// Writes down the value at each observation.
struct Diary {
  explicit Diary(Integer value) : finderID(*this, value) {}
  void finderIDWasSet() { seen.push_back(finderID); }

  std::vector<Integer> seen;
  Observed<Diary> finderID;
};

TEST(Observed, startIsNoAssignment) {
  const Diary diary(7);
  EXPECT_EQ(diary.finderID, 7);
  EXPECT_TRUE(diary.seen.empty());
}

TEST(Observed, assignmentIsToldAfterTheValueChanged) {
  Diary diary(0);
  diary.finderID = 5;
  diary.finderID = -3;
  EXPECT_EQ(diary.seen, (std::vector<Integer>{5, -3}));
}

TEST(Observed, assignmentOfTheSameValueIsToldToo) {
  Diary diary(5);
  diary.finderID = 5;
  EXPECT_EQ(diary.seen, (std::vector<Integer>{5}));
}

TEST(Observed, assignmentFromAnotherRecordTakesTheValueAndTellsTheTargetOnly) {
  Diary source(9);
  Diary target(1);
  target.finderID = source.finderID;
  EXPECT_EQ(target.finderID, 9);
  EXPECT_EQ(target.seen, (std::vector<Integer>{9}));
  EXPECT_TRUE(source.seen.empty());
}

TEST(Observed, assignmentToItselfIsTold) {
  Diary diary(4);
  Observed<Diary>& same = diary.finderID;
  diary.finderID = same;
  EXPECT_EQ(diary.seen, (std::vector<Integer>{4}));
}

}  // namespace
}  // namespace sorrel
