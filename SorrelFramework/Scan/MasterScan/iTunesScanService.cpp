#include "SorrelFramework/Scan/MasterScan/iTunesScanService.hpp"

#include <string>
#include <string_view>
#include <utility>

#include "SorrelFramework/Platform/FileStatus.hpp"
#include "SorrelFramework/Platform/Host.hpp"
#include "SorrelFramework/Platform/PropertyList.hpp"

namespace sorrel {
namespace {

constexpr std::string_view kBackups = "/Application Support/MobileSync/Backup";

CategoryPlan planFor(const CategoryInformation& /*category*/) {
  CategoryPlan plan;
  plan.keys = kRecordKeys;
  plan.options = kDirectChildren;
  plan.record = iTunesScanService::updateTitle;
  return plan;
}

bool isFile(const std::string& path) {
  const auto status = statusOf(path);
  return status && status->isRegularFile();
}

bool isBackup(const std::string& path) {
  const Host& host = Host::current();
  if (host.layoutPath(path).find(kBackups) != std::string::npos) return true;
  return host.layout() == Host::Layout::LinuxDesktop &&
         (isFile(path + "/Manifest.db") || isFile(path + "/Manifest.plist"));
}

}  // namespace

void iTunesScanService::updateTitle(FileInformation& record) {
  const std::string path = record.url.path();
  if (!isBackup(path) || !isFile(path + "/Info.plist")) return;
  const auto list = readPropertyListFile(path + "/Info.plist");
  const std::string* const name = list ? list->findString("Display Name") : nullptr;
  if (name != nullptr) record.title = *name;
}

void iTunesScanService::scaniTunesJunk(FeatureInformation& featureInfo, ProgressFunc progress,
                                       PercentFunc showPercent, SingleDoneFunc singleDone,
                                       std::function<void(CategoryResults)> done,
                                       std::shared_ptr<WeftSerialQueue> dispatch) {
  scanProiTunesJunk(featureInfo, std::move(progress), std::move(showPercent), std::move(singleDone),
                    std::move(done), std::move(dispatch));
}

void iTunesScanService::scanProiTunesJunk(FeatureInformation& featureInfo, ProgressFunc progress,
                                          PercentFunc showPercent, SingleDoneFunc singleDone,
                                          std::function<void(CategoryResults)> done,
                                          std::shared_ptr<WeftSerialQueue> dispatch) {
  runJunkScan(featureInfo, std::move(progress), std::move(showPercent), std::move(singleDone),
              std::move(done), std::move(dispatch), planFor);
}

}  // namespace sorrel
