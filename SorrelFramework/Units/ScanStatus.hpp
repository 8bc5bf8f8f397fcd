#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>

namespace sorrel {

enum class ScanState : int { start = 0, end = 1, suspend = 2 };

/// The table of running scans: one ScanState for each feature's finderID. Safe on any thread. A walk fetches
/// the cell of its feature once and reads only the cell, so that the test before each item costs one load.
class ScanStatusTable {
 public:
  /// Value of a cell whose feature has no entry yet.
  static constexpr int kNoEntry = -1;
  using Cell = std::atomic<int>;

  /// Nothing if the feature was never scanned or stopped.
  [[nodiscard]] std::optional<ScanState> get(std::int64_t finderID) const;
  void set(std::int64_t finderID, ScanState state);
  /// Sets `start` and returns true, unless the entry reads `start` already: then nothing changes.
  [[nodiscard]] bool startUnlessRunning(std::int64_t finderID);
  /// Sets `suspend` and returns true, unless the entry reads `suspend` already.
  [[nodiscard]] bool suspendUnlessSuspended(std::int64_t finderID);
  /// The cell of a feature; it lives as long as the process.
  [[nodiscard]] Cell& cell(std::int64_t finderID) const;

  [[nodiscard]] static bool isSuspended(const Cell& cell) {
    return cell.load(std::memory_order_relaxed) == static_cast<int>(ScanState::suspend);
  }

  void resetForTesting();
};

/// While it lives, a stop of the feature's scan runs `action`: when the entry becomes `suspend`, or at once
/// if it reads that already. For work that cannot poll the entry while it waits, such as a child process. The
/// action runs on the thread that stops the scan, perhaps more than once; it must be short and make no
/// SuspendWatch.
class SuspendWatch {
 public:
  SuspendWatch(std::int64_t finderID, std::function<void()> action);
  /// Waits for a running action.
  ~SuspendWatch();
  SuspendWatch(const SuspendWatch&) = delete;
  SuspendWatch& operator=(const SuspendWatch&) = delete;

 private:
  friend class ScanStatusTable;
  struct Entry {
    std::int64_t finderID;
    std::function<void()> action;
  };
  struct Shared;
  static Shared& shared();
  static void runActions(std::int64_t finderID);

  std::list<Entry>::iterator entry_;
};

/// The one table of the process; SuperScanService::scanStatus is another name for it.
ScanStatusTable& scanStatusTable();

}  // namespace sorrel
