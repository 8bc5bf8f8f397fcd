#pragma once

#include <memory>
#include <string>
#include <vector>

#include "SorrelFramework/Scan/FinderRun.hpp"

namespace sorrel::test {

/// A finder that no application has: it lists the files below some places whose names end in a suffix. It
/// shows what a new finder writes itself, on the parts that all scanners share.
class SuffixFinder {
 public:
  /// Starts the scan and returns. Fills the feature's first category and calls `done` with its bytes, once,
  /// on `queue`; a stopped scan leaves the tree alone and reports 0.
  static void scan(FeatureInformation& feature, const std::string& suffix, const std::vector<URL>& places,
                   ProgressFunc progress, PercentFunc showPercent, FinderRun::DoneFunc done,
                   std::shared_ptr<WeftSerialQueue> queue);
};

}  // namespace sorrel::test
