#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "SorrelFramework/Scan/ItemProcedure.hpp"
#include "SorrelFramework/Scan/ScanTypes.hpp"
#include "SorrelFramework/Units/ScanStatus.hpp"

namespace sorrel {

/// A walk breaks off as soon as one of these entries of the table of running scans reads `suspend`.
struct StopTest {
  const ScanStatusTable::Cell* first = nullptr;
  const ScanStatusTable::Cell* second = nullptr;

  [[nodiscard]] bool isStopped() const {
    return (first != nullptr && ScanStatusTable::isSuspended(*first)) ||
           (second != nullptr && ScanStatusTable::isSuspended(*second));
  }
};

/// Told the path, without a slash at its end, of a folder that could not be read, and the errno. Called on
/// several threads, one at a time.
using UnreadFolderHandler = std::function<void(const std::string& path, int error)>;

struct WalkRequest {
  ResourceKeys keys;
  EnumerationOptions options = 0;
  FilterFunc filter;
  EnumerationErrorHandler errorHandler;  ///< for folders that are only sized it is not called
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

/// Walks the folder `root` and makes a record for each item that the filter keeps. Blocks; threads of the
/// global queue that are free help. Every folder record gets the sum of all that lies below it, hidden items
/// and the insides of packages included, from the same pass over the disk: the figure that calculateSize
/// gives. A folder that a stop, or the error handler, kept the walk from reading whole has no record and is
/// in no total; items below it that were met have theirs.
WalkResult walkTree(const URL& root, const WalkRequest& request);

/// Sum of the sizes of everything but folders below the folder `path`, in bytes, on the calling thread. 0 for
/// anything that is no folder. A link to a folder is entered at the root alone. Breaks off with what it has
/// when `stop` says so.
std::int64_t sizeOfTree(const std::string& path, const StopTest& stop, UnreadFolderHandler unread = {});

}  // namespace sorrel
