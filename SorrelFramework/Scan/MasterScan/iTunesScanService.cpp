#include "SorrelFramework/Scan/MasterScan/iTunesScanService.hpp"

#include <string>
#include <string_view>
#include <utility>

#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"

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

bool isFolder(const std::string& path) {
  const auto status = statusOf(path);
  return status && status->isDirectory();
}

bool isBackup(const std::string& path) {
  const Host& host = Host::current();
  const std::string place = host.layoutPath(path);
  if (place.find(kBackups) != std::string::npos) return true;
  if (host.ignoresLetterCase()) return lowercased(place).find(lowercased(kBackups)) != std::string::npos;
  return host.layout() == Host::Layout::LinuxDesktop &&
         (isFile(path + "/Manifest.db") || isFile(path + "/Manifest.plist"));
}

}  // namespace

void iTunesScanService::updateTitle(FileInformation& record) {
  const std::string path = record.url.path();
  if (!isBackup(path) || !isFolder(path)) return;  // a link may lead off the volume
  const std::string info = Host::current().matchingLetterCase(path + "/Info.plist");
  if (!isFile(info)) return;
  const auto list = readPropertyListFile(info);
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
