#include "SorrelFramework/Units/ScanStatus.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <limits>
#include <thread>
#include <vector>

namespace sorrel {
namespace {

class ScanStatus : public testing::Test {
 protected:
  ScanStatus() { table_.resetForTesting(); }
  ~ScanStatus() override { table_.resetForTesting(); }

  ScanStatusTable& table_ = scanStatusTable();
};

TEST_F(ScanStatus, statesHaveTheirRawValues) {
  EXPECT_EQ(static_cast<int>(ScanState::start), 0);
  EXPECT_EQ(static_cast<int>(ScanState::end), 1);
  EXPECT_EQ(static_cast<int>(ScanState::suspend), 2);
}

TEST_F(ScanStatus, featureThatWasNeverScannedHasNoEntry) {
  EXPECT_EQ(table_.get(3), std::nullopt);
  EXPECT_FALSE(ScanStatusTable::isSuspended(table_.cell(3)));
  EXPECT_EQ(table_.get(3), std::nullopt);
}

TEST_F(ScanStatus, readsWhatWasSet) {
  table_.set(3, ScanState::end);
  EXPECT_EQ(table_.get(3), ScanState::end);
  EXPECT_EQ(table_.get(4), std::nullopt);
}

TEST_F(ScanStatus, anyNumberIsAFeature) {
  table_.set(std::numeric_limits<std::int64_t>::min(), ScanState::start);
  table_.set(-1, ScanState::suspend);
  EXPECT_EQ(table_.get(std::numeric_limits<std::int64_t>::min()), ScanState::start);
  EXPECT_EQ(table_.get(-1), ScanState::suspend);
}

TEST_F(ScanStatus, startsFromNoEntryFromEndAndFromSuspend) {
  EXPECT_TRUE(table_.startUnlessRunning(1));
  for (const auto state : {ScanState::end, ScanState::suspend}) {
    table_.set(1, state);
    EXPECT_TRUE(table_.startUnlessRunning(1));
    EXPECT_EQ(table_.get(1), ScanState::start);
  }
}

TEST_F(ScanStatus, secondStartIsRefused) {
  EXPECT_TRUE(table_.startUnlessRunning(1));
  EXPECT_FALSE(table_.startUnlessRunning(1));
  EXPECT_EQ(table_.get(1), ScanState::start);
}

TEST_F(ScanStatus, suspendsFromEveryStateButSuspend) {
  EXPECT_TRUE(table_.suspendUnlessSuspended(1));
  for (const auto state : {ScanState::start, ScanState::end}) {
    table_.set(1, state);
    EXPECT_TRUE(table_.suspendUnlessSuspended(1));
    EXPECT_EQ(table_.get(1), ScanState::suspend);
  }
  EXPECT_FALSE(table_.suspendUnlessSuspended(1));
}

TEST_F(ScanStatus, cellSeesTheStop) {
  const auto& cell = table_.cell(9);
  table_.set(9, ScanState::start);
  EXPECT_FALSE(ScanStatusTable::isSuspended(cell));
  EXPECT_TRUE(table_.suspendUnlessSuspended(9));
  EXPECT_TRUE(ScanStatusTable::isSuspended(cell));
  EXPECT_EQ(&cell, &table_.cell(9));
}

TEST_F(ScanStatus, oneOfManyStartsWins) {
  for (int round = 0; round < 50; ++round) {
    table_.set(5, ScanState::end);
    std::atomic<int> winners{0};
    std::vector<std::jthread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&] {
        if (table_.startUnlessRunning(5)) ++winners;
      });
    }
    threads.clear();
    EXPECT_EQ(winners, 1);
  }
}

TEST_F(ScanStatus, resetForgetsEveryFeatureAndKeepsTheCells) {
  auto& cell = table_.cell(2);
  table_.set(2, ScanState::suspend);
  table_.resetForTesting();
  EXPECT_EQ(table_.get(2), std::nullopt);
  EXPECT_FALSE(ScanStatusTable::isSuspended(cell));
}

TEST_F(ScanStatus, watchRunsWhenItsFeatureIsSuspended) {
  int stops = 0;
  const SuspendWatch watch(3, [&] { ++stops; });
  table_.set(3, ScanState::start);
  table_.set(4, ScanState::suspend);
  EXPECT_EQ(stops, 0);
  table_.set(3, ScanState::suspend);
  EXPECT_EQ(stops, 1);
  table_.set(3, ScanState::start);
  EXPECT_TRUE(table_.suspendUnlessSuspended(3));
  EXPECT_EQ(stops, 2);
  EXPECT_FALSE(table_.suspendUnlessSuspended(3));
  EXPECT_EQ(stops, 2);
}

TEST_F(ScanStatus, watchOfASuspendedFeatureRunsAtOnce) {
  table_.set(3, ScanState::suspend);
  int stops = 0;
  const SuspendWatch watch(3, [&] { ++stops; });
  EXPECT_EQ(stops, 1);
}

TEST_F(ScanStatus, watchThatHasEndedRunsNoMore) {
  int stops = 0;
  {
    const SuspendWatch watch(3, [&] { ++stops; });
  }
  table_.set(3, ScanState::suspend);
  EXPECT_EQ(stops, 0);
}

TEST_F(ScanStatus, watchMissesNoStopFromAnotherThread) {
  for (int round = 0; round < 200; ++round) {
    table_.set(3, ScanState::start);
    std::atomic<int> stops = 0;
    std::jthread other([this] { table_.set(3, ScanState::suspend); });
    const SuspendWatch watch(3, [&] { ++stops; });
    other.join();
    EXPECT_GE(stops.load(), 1);
  }
}

}  // namespace
}  // namespace sorrel
