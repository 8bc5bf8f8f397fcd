#include "SorrelFramework/Scan/ScanStages.hpp"

#include <gtest/gtest.h>

#include "SorrelFramework/Units/LogService.hpp"
#include "Tests/Support/ScanKit.hpp"

namespace sorrel {
namespace {

class ScanStagesTest : public testing::Test {
 protected:
  ScanStagesTest() { LogService::resetForTesting(); }

  ScanStage stage(const std::string& name) {
    return {name, [this, name](const StageThrough& through) {
              order.push_back(name);
              waiting = through;
            }};
  }
  static std::string log() {
    LogService::shard().flushForTesting();
    return test::contentOf(LogService::shard().logPath.path());
  }

  test::ScanVolume volume;
  std::vector<std::string> order;
  StageThrough waiting;
};

TEST_F(ScanStagesTest, stageBeginsWhenTheOneBeforeIsThrough) {
  runStages("Finder", {stage("walk"), stage("tree")}, {});
  EXPECT_EQ(order, std::vector<std::string>{"walk"});
  waiting("3 files");
  EXPECT_EQ(order, (std::vector<std::string>{"walk", "tree"}));
  waiting("1 group");
  EXPECT_EQ(order.size(), 2U);
}

TEST_F(ScanStagesTest, eachStageLeavesALineOfCounts) {
  runStages("Finder", {stage("walk"), stage("tree")}, {});
  waiting("3 files");
  waiting("1 group");
  const std::string text = log();
  EXPECT_NE(text.find(":Info>:Finder walk: 3 files\n"), std::string::npos) << text;
  EXPECT_NE(text.find(":Info>:Finder tree: 1 group\n"), std::string::npos) << text;
}

TEST_F(ScanStagesTest, noStageBeginsAfterTheScanIsOver) {
  bool isOver = false;
  runStages("Finder", {stage("walk"), stage("tree")}, [&isOver] { return isOver; });
  isOver = true;
  waiting("3 files");
  EXPECT_EQ(order, std::vector<std::string>{"walk"});
}

TEST_F(ScanStagesTest, scanThatIsOverBeginsNoStage) {
  runStages("Finder", {stage("walk")}, [] { return true; });
  EXPECT_TRUE(order.empty());
}

}  // namespace
}  // namespace sorrel
