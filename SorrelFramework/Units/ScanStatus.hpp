#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

namespace sorrel {

enum class ScanState : int { start = 0, end = 1, suspend = 2 };

/// The table of running scans: one ScanState for each feature's finderID. Safe on any thread. A walk takes
/// the cell of its feature once and reads that, so that the test before each item costs one load.
class ScanStatusTable {
 public:
  /// Value of a cell whose feature has no entry yet.
  static constexpr int kNoEntry = -1;
  using Cell = std::atomic<int>;

  /// Nothing if the feature was never scanned or stopped.
  [[nodiscard]] std::optional<ScanState> get(std::int64_t finderID) const;
  void set(std::int64_t finderID, ScanState state);
  /// Sets `start` and answers true, unless the entry reads `start` already: then nothing changes.
  [[nodiscard]] bool startUnlessRunning(std::int64_t finderID);
  /// Sets `suspend` and answers true, unless the entry reads `suspend` already.
  [[nodiscard]] bool suspendUnlessSuspended(std::int64_t finderID);
  /// The cell of a feature; it lives as long as the process.
  [[nodiscard]] Cell& cell(std::int64_t finderID) const;

  [[nodiscard]] static bool isSuspended(const Cell& cell) {
    return cell.load(std::memory_order_relaxed) == static_cast<int>(ScanState::suspend);
  }

  void resetForTesting();
};

/// The one table of the process; SuperScanService::scanStatus is another name for it.
ScanStatusTable& scanStatusTable();

}  // namespace sorrel
