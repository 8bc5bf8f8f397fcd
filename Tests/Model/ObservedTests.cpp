#include "SorrelFramework/Model/Observed.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace sorrel {
namespace {

/// Records the value at each observation.
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

TEST(Observed, eachOperatorThatWritesIsOneAssignment) {
  Diary diary(5);
  EXPECT_EQ(++diary.finderID, 6);
  EXPECT_EQ(diary.finderID++, 6);
  EXPECT_EQ(--diary.finderID, 6);
  EXPECT_EQ(diary.finderID--, 6);
  diary.finderID += 7;
  diary.finderID -= 2;
  diary.finderID *= 6;
  diary.finderID /= 4;
  diary.finderID %= 8;
  diary.finderID |= 8;
  diary.finderID &= 14;
  diary.finderID ^= 3;
  diary.finderID <<= 2;
  diary.finderID >>= 1;
  EXPECT_EQ(diary.seen, (std::vector<Integer>{6, 7, 6, 5, 12, 10, 60, 15, 7, 15, 14, 13, 52, 26}));
}

TEST(Observed, copyIsANumberThatReportsToNoRecord) {
  auto diary = std::make_unique<Diary>(5);
  auto id = diary->finderID;
  const auto read = [&diary] { return diary->finderID; };
  auto returned = read();
  id += 2;
  returned = 9;
  EXPECT_TRUE(diary->seen.empty());
  diary.reset();
  EXPECT_EQ(++id, 8);
  EXPECT_EQ(returned, 9);
}

TEST(Observed, swapIsOneAssignmentOfEach) {
  Diary first(1);
  Diary second(2);
  std::swap(first.finderID, second.finderID);
  EXPECT_EQ(first.seen, (std::vector<Integer>{2}));
  EXPECT_EQ(second.seen, (std::vector<Integer>{1}));
}

TEST(Observed, swapTakesFieldsOfOtherRecordsAndPlainIntegers) {
  struct Other {
    explicit Other(Integer value) : finderID(*this, value) {}
    void finderIDWasSet() { ++count; }
    int count = 0;
    Observed<Other> finderID;
  };
  using std::swap;
  Diary diary(1);
  Diary second(5);
  Other other(2);
  swap(diary.finderID, other.finderID);
  EXPECT_EQ(diary.seen, std::vector<Integer>{2});
  EXPECT_EQ(other.finderID, 1);
  EXPECT_EQ(other.count, 1);
  Integer plain = 3;
  swap(diary.finderID, plain);
  EXPECT_EQ(plain, 2);
  swap(diary.finderID, second.finderID);
  EXPECT_EQ(diary.seen, (std::vector<Integer>{2, 3, 5}));
  EXPECT_EQ(second.seen, std::vector<Integer>{3});
}

TEST(Observed, inputIsOneAssignment) {
  Diary diary(1);
  std::istringstream in("7 x");
  in >> diary.finderID;
  EXPECT_EQ(diary.seen, std::vector<Integer>{7});
  in >> diary.finderID;
  EXPECT_TRUE(in.fail());
  EXPECT_EQ(diary.seen, (std::vector<Integer>{7, 0}));
  in >> diary.finderID;  // nothing is read from a stream that has failed
  EXPECT_EQ(diary.seen, (std::vector<Integer>{7, 0}));
}

TEST(Observed, isWhereAnIntegerIsExpected) {
  const Diary diary(5);
  const auto& id = diary.finderID;
  static_assert(std::is_same_v<decltype(id + 1), Integer>);
  static_assert(std::is_same_v<decltype(-id), Integer>);
  std::ostringstream out;
  out << id << ' ' << std::to_string(id);
  EXPECT_EQ(out.str(), "5 5");
  const std::map<Integer, int> byID{{id, 1}};
  EXPECT_EQ(byID.count(id), 1U);
  const std::vector<int> row(6);
  EXPECT_EQ(row[static_cast<std::size_t>(id)], 0);
  EXPECT_TRUE(id == 5 && id < 6 && 4 < id && id != Diary(6).finderID);
  switch (id) {
    case 5:
      break;
    default:
      FAIL();
  }
  EXPECT_EQ(std::hash<Observed<Diary>>()(id), std::hash<Integer>()(5));
}

}  // namespace
}  // namespace sorrel
