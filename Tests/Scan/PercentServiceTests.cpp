#include "SorrelFramework/Scan/PercentService.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <memory>
#include <thread>
#include <vector>

#include "SorrelFramework/Platform/Queues/MainQueue.hpp"
#include "Tests/Support/MainLoop.hpp"

namespace sorrel {
namespace {

using std::chrono::milliseconds;
using test::runMainLoopUntil;

class PercentServiceTest : public testing::Test {
 protected:
  std::shared_ptr<PercentService> make(std::int64_t totalStep, float increaseValue = 0.2F) {
    return std::make_shared<PercentService>([this](float fraction) { reported_.push_back(fraction); },
                                            totalStep, increaseValue);
  }
  /// Runs the main loop for `count` ticks of a timer like the service's own.
  static bool letTicksPass(int count) {
    const MainTimer timer(milliseconds(100), [&count] { --count; });
    return runMainLoopUntil([&count] { return count <= 0; });
  }

  std::vector<float> reported_;
};

TEST_F(PercentServiceTest, startsWithNothingFinished) {
  const auto service = std::make_shared<PercentService>(nullptr, 4);
  EXPECT_EQ(service->totalStep, 4);
  EXPECT_EQ(service->currentStep, 0);
  EXPECT_EQ(service->singleStep, 0.0F);
  EXPECT_EQ(service->increaseValue, 0.2F);
}

TEST_F(PercentServiceTest, doesNotMoveBeforeAStepIsFinished) {
  const auto service = make(2);
  service->updatePercent();
  EXPECT_TRUE(reported_.empty());
}

TEST_F(PercentServiceTest, creepsTowardTheFinishedStepsInSingleFloats) {
  const auto service = make(3);
  service->progressStep();
  for (int i = 0; i < 10; ++i) service->updatePercent();
  float value = 0;
  std::vector<float> expected;
  while (value < 1.0F) {
    value += 0.2F;
    expected.push_back(value / 3.0F);
  }
  EXPECT_EQ(reported_, expected);
  EXPECT_EQ(service->singleStep, value);
}

TEST_F(PercentServiceTest, passesTheFinishedStepsByLessThanOneIncrease) {
  const auto service = make(5, 0.75F);
  service->progressStep();
  for (int i = 0; i < 5; ++i) service->updatePercent();
  EXPECT_EQ(reported_, (std::vector<float>{0.75F / 5, 1.5F / 5}));
}

TEST_F(PercentServiceTest, reachingTheTotalReportsOneWithoutCreeping) {
  const auto service = make(2);
  service->progressStep();
  service->progressStep();
  service->updatePercent();
  EXPECT_EQ(reported_, (std::vector<float>{1.0F}));
  EXPECT_EQ(service->singleStep, 0.0F);
}

TEST_F(PercentServiceTest, noStepsAtAllEndWithTheFirstTick) {
  const auto service = make(0);
  service->startTime();
  EXPECT_TRUE(reported_.empty());
  ASSERT_TRUE(runMainLoopUntil([&] { return !reported_.empty(); }));
  ASSERT_TRUE(letTicksPass(2));
  EXPECT_EQ(reported_, (std::vector<float>{1.0F}));
}

TEST_F(PercentServiceTest, moreStepsThanAnnouncedCreepPastOne) {
  const auto service = make(1, 1.0F);
  for (int i = 0; i < 3; ++i) service->progressStep();
  for (int i = 0; i < 5; ++i) service->updatePercent();
  EXPECT_EQ(reported_, (std::vector<float>{1.0F, 2.0F, 3.0F}));
}

TEST_F(PercentServiceTest, stepsOfAJobWithoutAnyGiveNoNumber) {
  const auto service = make(0);
  service->progressStep();
  service->updatePercent();
  ASSERT_EQ(reported_.size(), 1U);
  EXPECT_TRUE(std::isinf(reported_.front()));
}

TEST_F(PercentServiceTest, increaseOfNothingReportsTheSameUntilTheEnd) {
  const auto service = make(2, 0.0F);
  service->progressStep();
  service->updatePercent();
  service->updatePercent();
  service->progressStep();
  service->updatePercent();
  EXPECT_EQ(reported_, (std::vector<float>{0.0F, 0.0F, 1.0F}));
}

TEST_F(PercentServiceTest, valueThatIsNoNumberStaysWhereItIs) {
  const auto service = make(3, std::numeric_limits<float>::quiet_NaN());
  service->progressStep();
  service->updatePercent();
  service->updatePercent();
  ASSERT_EQ(reported_.size(), 1U);
  EXPECT_TRUE(std::isnan(reported_.front()));
}

TEST_F(PercentServiceTest, stopReportsOneEachTime) {
  const auto service = make(9);
  service->stopTime();
  service->startTime();
  service->stopTime();
  EXPECT_EQ(reported_, (std::vector<float>{1.0F, 1.0F}));
}

TEST_F(PercentServiceTest, timerDrivesTheBarOnTheMainQueue) {
  std::vector<std::thread::id> threads;
  const auto service = std::make_shared<PercentService>(
      [&](float fraction) {
        reported_.push_back(fraction);
        threads.push_back(std::this_thread::get_id());
      },
      2, 0.5F);
  std::jthread([&] { service->startTime(); }).join();
  service->progressStep();
  ASSERT_TRUE(runMainLoopUntil([&] { return reported_.size() == 2; }));
  std::jthread([&] { service->progressStep(); }).join();
  ASSERT_TRUE(runMainLoopUntil([&] { return reported_.size() == 3; }));
  EXPECT_EQ(reported_, (std::vector<float>{0.25F, 0.5F, 1.0F}));
  EXPECT_EQ(threads, (std::vector<std::thread::id>(3, std::this_thread::get_id())));
}

TEST_F(PercentServiceTest, stopEndsTheTicks) {
  const auto service = make(9);
  service->startTime();
  service->progressStep();
  ASSERT_TRUE(runMainLoopUntil([&] { return !reported_.empty(); }));
  service->stopTime();
  const std::size_t count = reported_.size();
  ASSERT_TRUE(letTicksPass(2));
  EXPECT_EQ(reported_.size(), count);
}

TEST_F(PercentServiceTest, stopOnAnotherThreadReportsOnTheMainQueue) {
  const auto service = make(9);
  service->startTime();
  std::jthread([&] { service->stopTime(); }).join();
  EXPECT_TRUE(reported_.empty());
  ASSERT_TRUE(test::drainMainQueue());
  EXPECT_EQ(reported_, (std::vector<float>{1.0F}));
}

TEST_F(PercentServiceTest, reportOfAStopOutlivesTheService) {
  auto service = make(9);
  std::jthread([&] {
    service->stopTime();
    service.reset();
  }).join();
  ASSERT_TRUE(test::drainMainQueue());
  EXPECT_EQ(reported_, (std::vector<float>{1.0F}));
}

TEST_F(PercentServiceTest, droppedServiceIsFreedAndTicksNoMore) {
  auto service = make(9);
  const std::weak_ptr<PercentService> watch = service;
  service->startTime();
  service->progressStep();
  std::jthread([&] { service.reset(); }).join();
  EXPECT_TRUE(watch.expired());
  ASSERT_TRUE(letTicksPass(2));
  EXPECT_TRUE(reported_.empty());
}

TEST_F(PercentServiceTest, serviceOnTheStackTicks) {
  PercentService service([this](float fraction) { reported_.push_back(fraction); }, 2, 0.5F);
  service.startTime();
  service.progressStep();
  ASSERT_TRUE(runMainLoopUntil([&] { return reported_.size() == 2; }));
  service.progressStep();
  ASSERT_TRUE(runMainLoopUntil([&] { return reported_.size() == 3; }));
  EXPECT_EQ(reported_, (std::vector<float>{0.25F, 0.5F, 1.0F}));
}

TEST_F(PercentServiceTest, serviceOnTheStackTicksNoMoreWhenItIsGone) {
  {
    PercentService service([this](float fraction) { reported_.push_back(fraction); }, 9);
    service.startTime();
    service.progressStep();
  }
  ASSERT_TRUE(letTicksPass(2));
  EXPECT_TRUE(reported_.empty());
}

TEST_F(PercentServiceTest, serviceInAUniquePointerMayEndOnAnotherThread) {
  std::unique_ptr<PercentService> service;
  int reports = 0;
  service = std::make_unique<PercentService>([&](float) { ++reports; }, 3);
  service->startTime();
  service->progressStep();
  ASSERT_TRUE(runMainLoopUntil([&] { return reports == 1; }));
  std::jthread([&] { service.reset(); }).join();
  ASSERT_TRUE(letTicksPass(2));
  EXPECT_EQ(reports, 1);
}

TEST_F(PercentServiceTest, mayBeDroppedByItsOwnReport) {
  std::shared_ptr<PercentService> service;
  int reports = 0;
  service = std::make_shared<PercentService>(
      [&](float) {
        ++reports;
        service.reset();
      },
      3);
  const std::weak_ptr<PercentService> watch = service;
  service->startTime();
  service->progressStep();
  ASSERT_TRUE(runMainLoopUntil([&] { return watch.expired(); }));
  EXPECT_EQ(reports, 1);
}

TEST_F(PercentServiceTest, ticksOnlyWhileTheMainLoopRuns) {
  const auto service = make(9);
  service->startTime();
  service->progressStep();
  EXPECT_TRUE(reported_.empty());
  ASSERT_TRUE(runMainLoopUntil([&] { return !reported_.empty(); }));
  EXPECT_EQ(reported_.front(), 0.2F / 9.0F);
}

TEST_F(PercentServiceTest, stepsCountFromManyThreads) {
  const auto service = make(10'000);
  {
    std::vector<std::jthread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&] {
        for (int i = 0; i < 1'000; ++i) service->progressStep();
      });
    }
  }
  EXPECT_EQ(service->currentStep, 4'000);
}

}  // namespace
}  // namespace sorrel
