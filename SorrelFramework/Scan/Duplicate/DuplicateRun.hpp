#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"

namespace sorrel {

/// One scan, from its start to its end: its callbacks, and whether it was stopped. A scan that has seen its
/// stop stays stopped, even when the entry of its feature reads `end` again. A new scan of the feature stops
/// the one before it, which may not have read the entry between the stop and the new start. From then on
/// entry and tree belong to the new scan: both change only under the feature's lock, after a test for a newer
/// scan.
class DuplicateRun {
 public:
  /// Sets the entry to `start`. Null if it reads `start` already: a scan of the feature runs.
  [[nodiscard]] static std::shared_ptr<DuplicateRun> begin(FeatureInformation& featureInfo,
                                                           DuplicateScanService::DoneFunc done,
                                                           std::shared_ptr<WeftSerialQueue> dispatch,
                                                           std::shared_ptr<PercentService> percentService,
                                                           WeftQOS qosClass);
  /// A run of later stages alone: leaves the entry as it is.
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
  [[nodiscard]] bool isReplaced() const;
  /// Runs `change`, which must not block, unless a newer scan owns the tree: then false. Any thread.
  [[nodiscard]] bool changeTree(const std::function<void()>& change);
  /// The result tree is complete.
  void finish(std::int64_t size);
  /// Sets the entry to `end`, unless a newer scan owns it.
  void leaveEntry();

 private:
  /// What the scans of one feature share; it lives as long as the process.
  struct Owner;
  [[nodiscard]] static Owner& ownerOf(Integer finderID);

  Ref<FeatureInformation> feature_;
  DuplicateScanService::DoneFunc done_;
  std::shared_ptr<WeftSerialQueue> dispatch_;
  std::shared_ptr<PercentService> percentService_;
  WeftQOS qosClass_;
  const ScanStatusTable::Cell& status_;
  Owner& owner_;
  std::uint64_t number_;
  std::atomic<bool> isStopped_{false};
  std::atomic<bool> isEnded_{false};
};

/// Bytes of the class variable limitSize.
[[nodiscard]] std::int64_t duplicateLimit();

}  // namespace sorrel
