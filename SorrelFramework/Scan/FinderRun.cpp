#include "SorrelFramework/Scan/FinderRun.hpp"

#include <utility>

#include "SorrelFramework/Units/LogService.hpp"

namespace sorrel {
namespace {

void log(const std::string& text) { LogService::shard().log(LogService::LogLevel::Info, text); }

}  // namespace

FinderRun::FinderRun(FeatureInformation& feature, std::shared_ptr<WeftSerialQueue> queue,
                     std::shared_ptr<PercentService> bar, Plan plan)
    : ScanRun(feature, std::move(queue), std::move(bar)), plan_(std::move(plan)) {}

bool FinderRun::endsByStop() {
  if (!isStopped()) return false;
  if (!end()) return true;
  log(plan_.stopText);
  report(0);
  return true;
}

void FinderRun::finish(std::int64_t size) {
  step();
  endBar();
  log(plan_.finishText);
  end();
  report(size);
}

void FinderRun::report(std::int64_t size) const {
  if (plan_.done) plan_.done(feature(), size);
}

}  // namespace sorrel
