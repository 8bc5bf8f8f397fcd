#include "SorrelFramework/Units/ScanStatus.hpp"

#include <map>
#include <mutex>
#include <utility>

namespace sorrel {
namespace {

struct Cells {
  std::mutex mutex;
  std::map<std::int64_t, ScanStatusTable::Cell> cells;  // nodes never move and are never removed
};

Cells& shared() {
  static Cells& cells = *new Cells;  // background threads may read it while the process ends
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
  if (state == ScanState::suspend) SuspendWatch::runActions(finderID);
}

bool ScanStatusTable::startUnlessRunning(std::int64_t finderID) {
  return cell(finderID).exchange(static_cast<int>(ScanState::start)) != static_cast<int>(ScanState::start);
}

bool ScanStatusTable::suspendUnlessSuspended(std::int64_t finderID) {
  const int before = cell(finderID).exchange(static_cast<int>(ScanState::suspend));
  if (before == static_cast<int>(ScanState::suspend)) return false;
  SuspendWatch::runActions(finderID);
  return true;
}

void ScanStatusTable::resetForTesting() {
  const std::lock_guard lock(shared().mutex);
  for (auto& [finderID, cell] : shared().cells) cell.store(kNoEntry);
}

struct SuspendWatch::Shared {
  std::mutex mutex;  // held while an action runs
  std::list<Entry> entries;
};

SuspendWatch::Shared& SuspendWatch::shared() {
  static Shared& watches = *new Shared;  // never destroyed, like the cells
  return watches;
}

SuspendWatch::SuspendWatch(std::int64_t finderID, std::function<void()> action) {
  const std::lock_guard lock(shared().mutex);
  entry_ = shared().entries.insert(shared().entries.end(), {finderID, std::move(action)});
  // A stop before the entry existed found no action to run.
  if (ScanStatusTable::isSuspended(scanStatusTable().cell(finderID))) entry_->action();
}

SuspendWatch::~SuspendWatch() {
  const std::lock_guard lock(shared().mutex);
  shared().entries.erase(entry_);
}

void SuspendWatch::runActions(std::int64_t finderID) {
  const std::lock_guard lock(shared().mutex);
  for (const Entry& entry : shared().entries) {
    if (entry.finderID == finderID) entry.action();
  }
}

ScanStatusTable& scanStatusTable() {
  static ScanStatusTable table;
  return table;
}

}  // namespace sorrel
