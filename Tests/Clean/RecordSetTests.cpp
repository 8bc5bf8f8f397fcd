#include "SorrelFramework/Clean/RecordSet.hpp"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "Tests/Support/CleanKit.hpp"

namespace sorrel {
namespace {

using test::makeRecord;
using Records = std::vector<Ref<FileInformation>>;

Ref<FileInformation> file(Integer finderID) {
  return makeRecord({URL::fileURL("/a", false), 1, 1, true, {}, finderID});
}

TEST(RecordSet, holdsTheFirstOfEqualRecords) {
  const auto first = file(1);
  const auto twin = file(1);
  RecordSet set;
  EXPECT_TRUE(set.insert(first));
  EXPECT_FALSE(set.insert(twin));
  EXPECT_TRUE(set.contains(twin));
  EXPECT_EQ(set.records(), Records{first});
}

TEST(RecordSet, goesThroughItsRecordsAsTheyCame) {
  Records records;
  for (const Integer finderID : {5, 3, 9, 1}) records.push_back(file(finderID));
  RecordSet set{records[0], records[1], records[2], records[3]};
  EXPECT_EQ(Records(set.begin(), set.end()), records);
  EXPECT_TRUE(set.remove(file(3)));
  EXPECT_EQ(set.records(), (Records{records[0], records[2], records[3]}));
  set.insert(records[1]);
  EXPECT_EQ(set.records().back(), records[1]);
}

TEST(RecordSet, removesByWhatARecordHolds) {
  RecordSet set{file(1)};
  EXPECT_FALSE(set.remove(file(2)));
  EXPECT_TRUE(set.remove(file(1)));
  EXPECT_TRUE(set.empty());
  EXPECT_FALSE(set.remove(file(1)));
}

TEST(RecordSet, movesWithItsRecords) {
  RecordSet set{file(1), file(2)};
  RecordSet moved = std::move(set);
  EXPECT_TRUE(moved.remove(file(1)));
  EXPECT_EQ(moved.size(), 1U);
}

}  // namespace
}  // namespace sorrel
