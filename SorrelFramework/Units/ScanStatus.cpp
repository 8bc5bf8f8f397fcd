#include "SorrelFramework/Units/ScanStatus.hpp"

#include <map>
#include <mutex>

namespace sorrel {
namespace {

struct Cells {
  std::mutex mutex;
  std::map<std::int64_t, ScanStatusTable::Cell> cells;  // nodes never move and are never removed
};

Cells& shared() {
  static Cells& cells = *new Cells;  // background threads may look at it while the process ends
  return cells;
}

}  // namespace

ScanStatusTable::Cell& ScanStatusTable::cell(std::int64_t finderID) const {
  const std::lock_guard lock(shared().mutex);
  return shared().cells.try_emplace(finderID, kNoEntry).first->second;
}

std::optional<ScanState> ScanStatusTable::get(std::int64_t finderID) const {
  const int value = cell(finderID).load();
  if (value == kNoEntry) return std::nullopt;
  return static_cast<ScanState>(value);
}

void ScanStatusTable::set(std::int64_t finderID, ScanState state) {
  cell(finderID).store(static_cast<int>(state));
}

bool ScanStatusTable::startUnlessRunning(std::int64_t finderID) {
  return cell(finderID).exchange(static_cast<int>(ScanState::start)) != static_cast<int>(ScanState::start);
}

bool ScanStatusTable::suspendUnlessSuspended(std::int64_t finderID) {
  return cell(finderID).exchange(static_cast<int>(ScanState::suspend)) !=
         static_cast<int>(ScanState::suspend);
}

void ScanStatusTable::resetForTesting() {
  const std::lock_guard lock(shared().mutex);
  for (auto& [finderID, cell] : shared().cells) cell.store(kNoEntry);
}

ScanStatusTable& scanStatusTable() {
  static ScanStatusTable table;
  return table;
}

}  // namespace sorrel
