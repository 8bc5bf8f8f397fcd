#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"

namespace sorrel {

/// One scan on its way through the stages: whom to tell, and whether it was stopped. A scan that once saw the
/// stop stays stopped, also when the entry of its feature reads `end` again. A new scan of the feature stops
/// the one before it, which may not have looked at the entry between the stop and the new start; from then on
/// entry and tree belong to the new one alone.
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
  /// True if a newer scan of the feature has begun. Any thread.
  [[nodiscard]] bool isReplaced() const { return *newest_ != number_; }
  /// The result tree is complete.
  void finish(std::int64_t size);

 private:
  Ref<FeatureInformation> feature_;
  DuplicateScanService::DoneFunc done_;
  std::shared_ptr<WeftSerialQueue> dispatch_;
  std::shared_ptr<PercentService> percentService_;
  WeftQOS qosClass_;
  const ScanStatusTable::Cell& status_;
  const std::atomic<std::uint64_t>* newest_;
  std::uint64_t number_;
  std::atomic<bool> isStopped_{false};
  std::atomic<bool> isEnded_{false};
};

/// Bytes of the class variable limitSize.
[[nodiscard]] std::int64_t duplicateLimit();

}  // namespace sorrel
