#include "SorrelFramework/Scan/ScanRun.hpp"

#include <map>
#include <mutex>

#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Scan/SuperScanService.hpp"

namespace sorrel {

struct ScanRun::Owner {
  std::mutex mutex;  // of the entry and the tree
  std::atomic<std::uint64_t> newest{0};
};

ScanRun::Owner& ScanRun::ownerOf(Integer finderID) {
  static std::mutex& mutex = *new std::mutex;
  static auto& owners = *new std::map<Integer, Owner>;
  const std::lock_guard lock(mutex);
  return owners[finderID];
}

bool ScanRun::claim(Integer finderID, const std::function<void()>& makeRun) {
  const std::lock_guard lock(ownerOf(finderID).mutex);
  if (SuperScanService::scanStatus.get(finderID) == ScanState::start) return false;
  // The run's number is drawn before the entry changes: the scan before this one must not find an entry that
  // is no longer suspended while it still has the newest number.
  makeRun();
  SuperScanService::scanStatus.set(finderID, ScanState::start);
  return true;
}

void ScanRun::startBar(FeatureInformation& feature, const std::shared_ptr<PercentService>& bar) {
  UnreadFolders::clear(feature.finderID);
  if (!bar) return;
  SuperScanService::percentService.exchange(bar);
  bar->startTime();
}

ScanRun::ScanRun(FeatureInformation& feature, std::shared_ptr<WeftSerialQueue> queue,
                 std::shared_ptr<PercentService> bar, ScanSteps steps)
    : feature_(feature),
      queue_(std::move(queue)),
      announcedBar_(bar),
      bar_(steps == ScanSteps::OwnBar ? std::move(bar) : nullptr),
      steps_(steps),
      status_(SuperScanService::scanStatus.cell(feature.finderID)),
      owner_(ownerOf(feature.finderID)),
      number_(++owner_.newest) {}

ScanRun::~ScanRun() {
  if (isKeptOpen_ || isEnded_) return;
  releaseEntry();
  if (const auto bar = announcedBar_.lock()) SuperScanService::percentService.remove(bar);
}

bool ScanRun::isReplaced() const { return owner_.newest != number_; }

StopTest ScanRun::stopTest() const { return {&status_, nullptr, &owner_.newest, number_}; }

UnreadFolderHandler ScanRun::unreadHandler() const {
  const auto add = UnreadFolders::handler(feature_->finderID);
  return [add, &newest = owner_.newest, number = number_](const std::string& path, int error) {
    if (newest == number) add(path, error);
  };
}

void ScanRun::addUnread(const UnreadFolders::Report& report) const {
  if (!isReplaced()) UnreadFolders::add(feature_->finderID, report);
}

void ScanRun::addUnreadFile(const std::string& path, int error) const {
  if (!isReplaced()) UnreadFolders::addFile(feature_->finderID, path, error);
}

bool ScanRun::isStopped() {
  if (isStopped_.load(std::memory_order_relaxed)) return true;
  if (!stopTest().isStopped()) return false;
  isStopped_ = true;
  return true;
}

void ScanRun::step() const {
  if (isReplaced() && steps_ == ScanSteps::BarInFlight) return;
  const auto bar = steps_ == ScanSteps::OwnBar ? bar_ : SuperScanService::percentService.get();
  if (bar) bar->progressStep();
}

void ScanRun::endBar() const {
  if (bar_) bar_->stopTime();
}

bool ScanRun::changeTree(const std::function<void()>& change) {
  const std::lock_guard lock(owner_.mutex);
  if (isReplaced()) return false;
  change();
  return true;
}

bool ScanRun::end() {
  if (isEnded_.exchange(true)) return false;
  releaseEntry();
  return true;
}

void ScanRun::releaseEntry() {
  const std::lock_guard lock(owner_.mutex);
  if (!isReplaced()) SuperScanService::scanStatus.set(feature_->finderID, ScanState::end);
}

}  // namespace sorrel
