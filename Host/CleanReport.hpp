#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "Host/RowOrder.hpp"
#include "SorrelFramework/Scan/ScanTypes.hpp"

namespace sorrel::cli {

/// One item that a clean removed from the disk, or should have removed.
struct CleanItem {
  std::string name;
  std::int64_t size = 0;
  bool isGone = false;     ///< it was removed
  bool isLeft = false;     ///< it was not removed, and still exists
  bool isRefused = false;  ///< it was not removed, and the helper may not remove it either
  std::string why;         ///< it was not removed
  bool isKept = false;     ///< the clean does not try to remove it
};

/// The leaves at and below these records with the results of their deletion.
std::vector<CleanItem> cleanItems(const FileRecords& records);

/// What would be removed and what is kept, each in `order`, with the sum of what would go.
void writePlan(std::ostream& out, const std::vector<CleanItem>& items, RowOrder order);

/// The removed items and those that stayed, with the reasons, each in `order`, with `freed` bytes as the sum.
void writeCleaned(std::ostream& out, const std::vector<CleanItem>& items, std::int64_t freed, RowOrder order);

}  // namespace sorrel::cli
