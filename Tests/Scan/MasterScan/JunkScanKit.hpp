#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "SorrelFramework/Scan/MasterScan/SystemScanService.hpp"
#include "Tests/Support/ScanKit.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel::test {

/// The entry point of a junk scanner.
using JunkScan = decltype(SystemScanService::scanSystemJunk);

/// A volume that is installed as the host, and a scan of one category.
class JunkScanFixture : public testing::Test {
 protected:
  JunkScanFixture() {
    SuperScanService::scanStatus.resetForTesting();
    volume.install();
  }

  void runScan(JunkScan& scanner, Integer finderID, const CategorySketch& category) {
    feature = makeFeature(finderID, {category});
    scanner(*feature, scan.progress(), scan.percent(), scan.singleDone(), scan.done(), scan.queue);
    ASSERT_TRUE(scan.waitUntilDone());
  }
  /// Names of the records, below `root`.
  [[nodiscard]] std::vector<std::string> namesBelow(const std::string& root) const {
    return namesOf(scan.results.at(0).first, volume.url(root));
  }

  TemporaryVolume volume;
  ScanRecord scan;
  Ref<FeatureInformation> feature;
};

}  // namespace sorrel::test
