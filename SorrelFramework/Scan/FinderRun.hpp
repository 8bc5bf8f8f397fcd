#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "SorrelFramework/Platform/Base/WeftQOS.hpp"
#include "SorrelFramework/Scan/ScanRun.hpp"

namespace sorrel {

/// The run of a finder that builds its tree itself and reports the bytes that it found. A stop ends it
/// without a tree.
class FinderRun : public ScanRun {
 public:
  using DoneFunc = std::function<void(FeatureInformation&, std::int64_t size)>;
  struct Plan {
    DoneFunc done;
    std::string finishText;  ///< for the log when the tree is complete
    std::string stopText;    ///< for the log when a stop has ended the scan
    WeftQOS qosClass = WeftQOS::Default;
  };

  FinderRun(FeatureInformation& feature, std::shared_ptr<WeftSerialQueue> queue,
            std::shared_ptr<PercentService> bar, Plan plan);

  /// For the tasks of the scan.
  [[nodiscard]] WeftQOS qosClass() const { return plan_.qosClass; }
  /// True if the scan was stopped or replaced; the first time ends it, and `done` gets 0. Any thread.
  [[nodiscard]] bool endsByStop();
  /// The tree is complete.
  void finish(std::int64_t size);

 private:
  void report(std::int64_t size) const;

  Plan plan_;
};

}  // namespace sorrel
