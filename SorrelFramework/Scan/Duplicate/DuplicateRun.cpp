#include "SorrelFramework/Scan/Duplicate/DuplicateRun.hpp"

#include <utility>

#include "SorrelFramework/Platform/CheckedMath.hpp"
#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Units/LogService.hpp"

namespace sorrel {

DuplicateRun::DuplicateRun(FeatureInformation& featureInfo, DuplicateScanService::DoneFunc done,
                           std::shared_ptr<WeftSerialQueue> dispatch,
                           std::shared_ptr<PercentService> percentService, WeftQOS qosClass)
    : feature_(featureInfo),
      done_(std::move(done)),
      dispatch_(std::move(dispatch)),
      percentService_(std::move(percentService)),
      qosClass_(qosClass),
      status_(SuperScanService::scanStatus.cell(featureInfo.finderID)) {}

void DuplicateRun::step() const {
  if (percentService_) percentService_->progressStep();
}

void DuplicateRun::onQueue(std::function<void()> change) const {
  submitWithRetry(dispatch_, std::move(change));
}

bool DuplicateRun::isStopped() {
  if (isStopped_.load(std::memory_order_relaxed)) return true;
  if (!ScanStatusTable::isSuspended(status_)) return false;
  isStopped_ = true;
  return true;
}

bool DuplicateRun::endsByStop() {
  if (!isStopped()) return false;
  if (!isEnded_.exchange(true)) DuplicateScanService::stopDuplicate(*feature_, done_);
  return true;
}

void DuplicateRun::finish(std::int64_t size) {
  step();
  if (percentService_) percentService_->stopTime();
  LogService::shard().log(LogService::LogLevel::Info, "DuplicateScanService Finish");
  SuperScanService::scanStatus.set(feature_->finderID, ScanState::end);
  if (done_) done_(*feature_, size);
}

std::int64_t duplicateLimit() {
  std::int64_t bytes = 0;
  if (__builtin_mul_overflow(DuplicateScanService::limitSize, 1024, &bytes)) fatalStop(kArithmeticOverflow);
  return bytes;
}

}  // namespace sorrel
