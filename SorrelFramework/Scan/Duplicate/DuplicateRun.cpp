#include "SorrelFramework/Scan/Duplicate/DuplicateRun.hpp"

#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "SorrelFramework/Platform/CheckedMath.hpp"
#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Units/LogService.hpp"

namespace sorrel {
namespace {

/// Number of the newest scan of a feature; it lives as long as the process.
std::atomic<std::uint64_t>& newestOf(Integer finderID) {
  static std::mutex& mutex = *new std::mutex;
  static auto& numbers = *new std::map<Integer, std::atomic<std::uint64_t>>;
  const std::lock_guard lock(mutex);
  return numbers[finderID];
}

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
      status_(SuperScanService::scanStatus.cell(featureInfo.finderID)) {
  auto& newest = newestOf(featureInfo.finderID);
  number_ = ++newest;
  newest_ = &newest;
}

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
  if (!isReplaced()) {
    DuplicateScanService::stopDuplicate(*feature_, done_);
  } else {
    log(DuplicateScanService::kStopLog);
    if (done_) done_(*feature_, 0);
  }
  return true;
}

void DuplicateRun::finish(std::int64_t size) {
  step();
  if (percentService_) percentService_->stopTime();
  log("DuplicateScanService Finish");
  if (!isReplaced()) SuperScanService::scanStatus.set(feature_->finderID, ScanState::end);
  if (done_) done_(*feature_, size);
}

std::int64_t duplicateLimit() {
  std::int64_t bytes = 0;
  if (__builtin_mul_overflow(DuplicateScanService::limitSize, 1024, &bytes)) fatalStop(kArithmeticOverflow);
  return bytes;
}

}  // namespace sorrel
