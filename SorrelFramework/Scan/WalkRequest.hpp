#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "SorrelFramework/Scan/ItemProcedure.hpp"
#include "SorrelFramework/Scan/ScanTypes.hpp"
#include "SorrelFramework/Units/ScanStatus.hpp"

namespace sorrel {

/// A walk breaks off as soon as one of these entries of the table of running scans reads `suspend`, or a scan
/// with a newer number than its own has begun.
struct StopTest {
  const ScanStatusTable::Cell* first = nullptr;
  const ScanStatusTable::Cell* second = nullptr;
  const std::atomic<std::uint64_t>* newestScan = nullptr;
  std::uint64_t scan = 0;

  [[nodiscard]] bool isStopped() const {
    return (first != nullptr && ScanStatusTable::isSuspended(*first)) ||
           (second != nullptr && ScanStatusTable::isSuspended(*second)) ||
           (newestScan != nullptr && *newestScan != scan);
  }
};

/// Gets the path, without a slash at its end, of a folder that could not be read, and the errno. Called on
/// several threads, one at a time.
using UnreadFolderHandler = std::function<void(const std::string& path, int error)>;

struct WalkRequest {
  ResourceKeys keys;
  EnumerationOptions options = 0;
  FilterFunc filter;
  EnumerationErrorHandler errorHandler;  ///< not called for folders that are only sized
  UnreadFolderHandler unread;            ///< for these too
  RecordTemplate record;
  bool isContainZeroItem = false;
  StopTest stop;
  std::shared_ptr<const ProgressFunc> progress;
};

struct WalkResult {
  ScanFilesInformation totals;
  FileRecords records;  ///< a parent before its children, children by name; numbered from 0
};

}  // namespace sorrel
