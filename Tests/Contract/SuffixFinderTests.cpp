// A finder written on the shared parts alone: what it finds can be ticked and cleaned, without a change to
// another scanner.
#include "Tests/Support/SuffixFinder.hpp"

#include <gtest/gtest.h>

#include <filesystem>

#include "SorrelFramework/Scan/SuperScanService.hpp"
#include "SorrelFramework/Selection/Globs.hpp"
#include "SorrelFramework/Selection/Ticks.hpp"
#include "Tests/Support/CleanKit.hpp"
#include "Tests/Support/ScanKit.hpp"

namespace sorrel::test {
namespace {

class SuffixFinderTest : public CleanFixture {
 protected:
  SuffixFinderTest() {
    SuperScanService::scanStatus.resetForTesting();
    for (const char* name : {"data/a.tmp", "data/deep/b.tmp", "data/c.txt", "data/.hidden/d.tmp"})
      stage_.volume.file(name, "1");
  }
  void run() {
    SuffixFinder::scan(*feature, ".tmp", {stage_.volume.url("data/")}, scan.progress(), scan.percent(),
                       scan.treeDone(), scan.queue);
    ASSERT_TRUE(scan.waitUntilDone());
  }
  std::vector<std::string> names() {
    return namesOf(feature->categoryInfo[0].childrens.refs(), stage_.volume.url("data/"));
  }

  ScanRecord scan;
  Ref<FeatureInformation> feature = makeFeature(77, {{CategoryInfomationKind::Common, {}}});
};

TEST_F(SuffixFinderTest, scanListsTheFilesWithTheSuffix) {
  run();
  EXPECT_EQ(names(), (std::vector<std::string>{"a.tmp", "deep/b.tmp"}));
  EXPECT_EQ(scan.treeSize, 2);
  EXPECT_EQ(scan.progressCalls.size(), 2U);
}

TEST_F(SuffixFinderTest, cleanRemovesWhatWasTickedAndNothingElse) {
  run();
  Globs globs({"*/deep/*"});
  tickMatching(*feature, globs);
  const FileRecords ticked = tickedRecords(TreeShape::Flat, *feature);
  ASSERT_EQ(ticked.size(), 1U);
  const auto before = snapshotOf(path("data"));
  CleanService::cleanCategorys({feature->categoryInfo.ref(0)}, CleanServiceType::Common, finish_, feature);
  ASSERT_TRUE(finish_->waitUntilFinished());
  EXPECT_EQ(goneBetween(before, snapshotOf(path("data"))), std::vector<std::string>{"deep/b.tmp"});
  EXPECT_EQ(finish_->finishes.at(0).size, 1);
}

}  // namespace
}  // namespace sorrel::test
