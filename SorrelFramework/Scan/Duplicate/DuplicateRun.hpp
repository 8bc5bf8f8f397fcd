#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"

namespace sorrel {

/// One scan on its way through the stages: whom to tell, and whether it was stopped. A scan that once saw the
/// stop stays stopped, also when the entry of its feature reads `end` again or a new scan has begun.
class DuplicateRun {
 public:
  DuplicateRun(FeatureInformation& featureInfo, DuplicateScanService::DoneFunc done,
               std::shared_ptr<WeftSerialQueue> dispatch, std::shared_ptr<PercentService> percentService,
               WeftQOS qosClass);

  [[nodiscard]] FeatureInformation& feature() const { return *feature_; }
  [[nodiscard]] WeftQOS qosClass() const { return qosClass_; }
  void step() const;
  /// Runs `change` on the queue where all shared state of the scan changes.
  void onQueue(std::function<void()> change) const;

  /// Any thread.
  [[nodiscard]] bool isStopped();
  /// True if the scan was stopped; the first time ends it.
  [[nodiscard]] bool endsByStop();
  /// The result tree is complete.
  void finish(std::int64_t size);

 private:
  Ref<FeatureInformation> feature_;
  DuplicateScanService::DoneFunc done_;
  std::shared_ptr<WeftSerialQueue> dispatch_;
  std::shared_ptr<PercentService> percentService_;
  WeftQOS qosClass_;
  const ScanStatusTable::Cell& status_;
  std::atomic<bool> isStopped_{false};
  std::atomic<bool> isEnded_{false};
};

/// The third stage.
void analyseDuplicates(const std::shared_ptr<DuplicateRun>& run, DuplicatesBySize files,
                       DuplicatesBySize folders);
/// The fourth stage.
void organizeDuplicates(const std::shared_ptr<DuplicateRun>& run, DuplicatesByHash files,
                        DuplicatesByHash folders);

/// Bytes of the class variable limitSize.
[[nodiscard]] std::int64_t duplicateLimit();

}  // namespace sorrel
