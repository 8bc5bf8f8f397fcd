#include "Host/ScanSession.hpp"

#include <atomic>
#include <memory>
#include <optional>
#include <utility>

#include "Host/ProgressLine.hpp"
#include "Host/Scanners.hpp"
#include "Host/StopSwitch.hpp"
#include "SorrelFramework/Platform/Queues/MainQueue.hpp"
#include "SorrelFramework/Platform/Queues/WeftSerialQueue.hpp"
#include "SorrelFramework/Scan/SuperScanService.hpp"
#include "SorrelFramework/Units/ScanStatus.hpp"

namespace sorrel::cli {
namespace {

/// Collects the callbacks of one scan. Lives until the last of them is gone, as blocks of progress may
/// outlive the walk that posted them. Members that are not atomic belong to the main queue.
class Session : public std::enable_shared_from_this<Session> {
 public:
  Session(Ref<FeatureInformation> feature, bool showProgress)
      : feature_(std::move(feature)), line_(showProgress) {}

  ScanJob job(ScanScope scope) {
    const auto self = shared_from_this();
    ScanJob job;
    job.feature = feature_;
    job.scope = std::move(scope);
    job.progress = [self](const std::string& path, std::int64_t size) {
      ++self->progress_;
      self->line_.item(path, size);
    };
    job.showPercent = [self](float fraction) { self->percent(fraction); };
    job.singleDone = [self](Integer, std::int64_t) { ++self->singleDone_; };
    job.done = [self](std::function<std::int64_t()> fillTree) {
      ++self->done_;
      // Runs after the blocks of progress that the walks have posted until now.
      MainQueue::post([self, fillTree = std::move(fillTree)] { self->arrived(fillTree); });
    };
    job.dispatch = std::make_shared<WeftSerialQueue>(WeftQOS::UserInitiated);
    return job;
  }

  void stop() {
    if (finished_) return;
    stopped_ = true;
    SuperScanService::stopScan(*feature_);
  }

  void showProgress() { line_.begin(); }

  SessionResult result() {
    line_.end();
    SessionResult result;
    result.stopped = stopped_;
    result.outcome.size = size_.value_or(0);
    result.outcome.status = statusWord();
    result.outcome.callbacks = {done_.load(), singleDone_.load(), progress_, lastPercent_};
    return result;
  }

 private:
  void percent(float fraction) {
    lastPercent_ = static_cast<double>(fraction);
    line_.percent(fraction);
    finishWhenComplete();
  }

  void arrived(const std::function<std::int64_t()>& fillTree) {
    size_ = fillTree();
    finishWhenComplete();
  }

  void finishWhenComplete() {
    if (finished_ || !size_ || lastPercent_ < 1.0) return;
    finished_ = true;
    MainQueue::quit();
  }

  [[nodiscard]] std::string_view statusWord() const {
    switch (scanStatusTable().get(feature_->finderID).value_or(ScanState::end)) {
      case ScanState::start:
        return "start";
      case ScanState::end:
        return "end";
      case ScanState::suspend:
        return "suspend";
    }
    return "";
  }

  Ref<FeatureInformation> feature_;
  ProgressLine line_;
  std::atomic<std::int64_t> done_ = 0;
  std::atomic<std::int64_t> singleDone_ = 0;
  std::int64_t progress_ = 0;
  double lastPercent_ = 0;
  std::optional<std::int64_t> size_;
  bool stopped_ = false;
  bool finished_ = false;
};

}  // namespace

SessionResult runScan(const Scanner& scanner, const Ref<FeatureInformation>& feature, ScanScope scope,
                      StopSwitch& stop, bool showProgress) {
  const auto session = std::make_shared<Session>(feature, showProgress);
  stop.setAction([session] { session->stop(); });
  session->showProgress();
  scanner.start(session->job(std::move(scope)));
  MainQueue::run();
  stop.setAction({});
  return session->result();
}

}  // namespace sorrel::cli
