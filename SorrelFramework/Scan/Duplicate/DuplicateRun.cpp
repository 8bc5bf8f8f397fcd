#include "SorrelFramework/Scan/Duplicate/DuplicateRun.hpp"

#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Units/LogService.hpp"

namespace sorrel {

struct DuplicateRun::Owner {
  std::mutex mutex;  // of the entry and the tree
  std::atomic<std::uint64_t> newest{0};
};

namespace {

void log(std::string_view text) { LogService::shard().log(LogService::LogLevel::Info, std::string(text)); }

}  // namespace

DuplicateRun::DuplicateRun(FeatureInformation& featureInfo, DuplicateScanService::DoneFunc done,
                           std::shared_ptr<WeftSerialQueue> dispatch,
                           std::shared_ptr<PercentService> percentService, WeftQOS qosClass)
    : feature_(featureInfo),
      done_(std::move(done)),
      dispatch_(std::move(dispatch)),
      percentService_(std::move(percentService)),
      qosClass_(qosClass),
      status_(SuperScanService::scanStatus.cell(featureInfo.finderID)),
      owner_(ownerOf(featureInfo.finderID)),
      number_(++owner_.newest) {}

std::shared_ptr<DuplicateRun> DuplicateRun::begin(FeatureInformation& featureInfo,
                                                  DuplicateScanService::DoneFunc done,
                                                  std::shared_ptr<WeftSerialQueue> dispatch,
                                                  std::shared_ptr<PercentService> percentService,
                                                  WeftQOS qosClass) {
  const std::lock_guard lock(ownerOf(featureInfo.finderID).mutex);
  if (SuperScanService::scanStatus.get(featureInfo.finderID) == ScanState::start) return nullptr;
  // The number first: the scan before this one must not find an entry that is no longer suspended while it
  // still has the newest number.
  auto run = std::make_shared<DuplicateRun>(featureInfo, std::move(done), std::move(dispatch),
                                            std::move(percentService), qosClass);
  SuperScanService::scanStatus.set(featureInfo.finderID, ScanState::start);
  return run;
}

DuplicateRun::Owner& DuplicateRun::ownerOf(Integer finderID) {
  static std::mutex& mutex = *new std::mutex;
  static auto& owners = *new std::map<Integer, Owner>;
  const std::lock_guard lock(mutex);
  return owners[finderID];
}

bool DuplicateRun::isReplaced() const { return owner_.newest != number_; }

void DuplicateRun::step() const {
  if (percentService_) percentService_->progressStep();
}

void DuplicateRun::onQueue(std::function<void()> change) const {
  submitWithRetry(dispatch_, std::move(change));
}

bool DuplicateRun::isStopped() {
  if (isStopped_.load(std::memory_order_relaxed)) return true;
  if (!ScanStatusTable::isSuspended(status_) && !isReplaced()) return false;
  isStopped_ = true;
  return true;
}

bool DuplicateRun::endsByStop() {
  if (!isStopped()) return false;
  if (isEnded_.exchange(true)) return true;
  log(DuplicateScanService::kStopLog);
  leaveEntry();
  if (done_) done_(*feature_, 0);
  return true;
}

bool DuplicateRun::changeTree(const std::function<void()>& change) {
  const std::lock_guard lock(owner_.mutex);
  if (isReplaced()) return false;
  change();
  return true;
}

void DuplicateRun::finish(std::int64_t size) {
  step();
  if (percentService_) percentService_->stopTime();
  log("DuplicateScanService Finish");
  leaveEntry();
  if (done_) done_(*feature_, size);
}

void DuplicateRun::leaveEntry() {
  const std::lock_guard lock(owner_.mutex);
  if (!isReplaced()) SuperScanService::scanStatus.set(feature_->finderID, ScanState::end);
}

std::int64_t duplicateLimit() {
  std::int64_t bytes = 0;
  if (__builtin_mul_overflow(DuplicateScanService::limitSize, 1024, &bytes)) fatalStop(kArithmeticOverflow);
  return bytes;
}

}  // namespace sorrel
