#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Platform/Queues/WeftSerialQueue.hpp"
#include "SorrelFramework/Scan/UnreadFolders.hpp"
#include "SorrelFramework/Scan/WalkRequest.hpp"
#include "SorrelFramework/Units/ScanStatus.hpp"

namespace sorrel {

class PercentService;

/// Which bar the steps of a scan move.
enum class ScanSteps {
  OwnBar,
  /// The bar in SuperScanService::percentService. A scan of another feature may have put its own bar there; a
  /// run does not keep the bar that was replaced.
  BarInFlight,
};

/// The life of one scan of a feature, shared by all its tasks. A run that has seen its stop stays stopped,
/// even when the entry of its feature reads `end` again. A new scan of the feature stops the one before it,
/// which may not have read the entry between the stop and the new start. From then on entry and tree belong
/// to the new scan: both change only under the feature's lock, after a test for a newer scan.
///
/// A run ends once: by end(), or without a report when its last handle goes, as after a queue that is shut
/// down has dropped a task.
class ScanRun {
 public:
  /// Sets the entry to `start`, forgets which folders the feature's last scan could not read, and starts the
  /// bar, which may be null. Null if the entry reads `start` already: a scan of the feature runs, and nothing
  /// changes.
  template <class Run = ScanRun, class... More>
  [[nodiscard]] static std::shared_ptr<Run> begin(FeatureInformation& feature,
                                                  std::shared_ptr<WeftSerialQueue> queue,
                                                  const std::shared_ptr<PercentService>& bar, More&&... more);
  /// A run for later stages of a scan alone: leaves the entry as it is. `queue` owns the state that the tasks
  /// of the scan share.
  ScanRun(FeatureInformation& feature, std::shared_ptr<WeftSerialQueue> queue,
          std::shared_ptr<PercentService> bar, ScanSteps steps = ScanSteps::OwnBar);
  ~ScanRun();
  ScanRun(const ScanRun&) = delete;
  ScanRun& operator=(const ScanRun&) = delete;

  [[nodiscard]] FeatureInformation& feature() const { return *feature_; }
  [[nodiscard]] const std::shared_ptr<WeftSerialQueue>& queue() const { return queue_; }
  /// Runs `change` on the queue, with the retry rule.
  void onQueue(std::function<void()> change) const { submitWithRetry(queue_, std::move(change)); }

  /// Any thread, as all that follows.
  [[nodiscard]] bool isStopped();
  /// True if a newer scan of the feature has begun.
  [[nodiscard]] bool isReplaced() const;
  /// For walks: stops them when the scan is stopped or replaced. Valid as long as the process lives.
  [[nodiscard]] StopTest stopTest() const;
  /// For walks: adds to the feature's UnreadFolders, unless a newer scan owns them. Valid as long as the
  /// process lives.
  [[nodiscard]] UnreadFolderHandler unreadHandler() const;
  void addUnread(const UnreadFolders::Report& report) const;
  void addUnreadFile(const std::string& path, int error) const;

  /// One step of the bar. A run that was replaced leaves the bar of the newer scan alone.
  void step() const;
  /// Ends the run's own bar with a report of 1.0.
  void endBar() const;

  /// Runs `change`, which must not block, unless a newer scan owns the tree: then returns false.
  [[nodiscard]] bool changeTree(const std::function<void()>& change);
  /// Sets the entry to `end`, unless a newer scan owns it. True the first time; later calls change nothing.
  bool end();
  /// The scan is never to end: the entry keeps `start` until stopScan().
  void keepOpen() { isKeptOpen_ = true; }

 private:
  /// State shared by the scans of one feature; it lives as long as the process.
  struct Owner;
  [[nodiscard]] static Owner& ownerOf(Integer finderID);
  [[nodiscard]] static bool claim(Integer finderID, const std::function<void()>& makeRun);
  static void startBar(FeatureInformation& feature, const std::shared_ptr<PercentService>& bar);
  void releaseEntry();

  Ref<FeatureInformation> feature_;
  std::shared_ptr<WeftSerialQueue> queue_;
  std::weak_ptr<PercentService> announcedBar_;  // the bar that the scan began with
  std::shared_ptr<PercentService> bar_;         // the same if the run owns it
  ScanSteps steps_;
  const ScanStatusTable::Cell& status_;
  Owner& owner_;
  std::uint64_t number_;
  std::atomic<bool> isStopped_{false};
  std::atomic<bool> isEnded_{false};
  std::atomic<bool> isKeptOpen_{false};
};

template <class Run, class... More>
std::shared_ptr<Run> ScanRun::begin(FeatureInformation& feature, std::shared_ptr<WeftSerialQueue> queue,
                                    const std::shared_ptr<PercentService>& bar, More&&... more) {
  std::shared_ptr<Run> run;
  const bool isBegun = claim(feature.finderID, [&] {
    run = std::make_shared<Run>(feature, std::move(queue), bar, std::forward<More>(more)...);
  });
  if (isBegun) startBar(feature, bar);
  return run;
}

}  // namespace sorrel
