#include "SorrelFramework/Scan/SuperScanService.hpp"

#include <utility>

#include "SorrelFramework/Platform/Base/Fatal.hpp"
#include "SorrelFramework/Platform/Files/FileManager.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"
#include "SorrelFramework/Scan/PackageSize.hpp"
#include "SorrelFramework/Scan/PathText.hpp"
#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Scan/RootsWalk.hpp"
#include "SorrelFramework/Scan/TreeWalk.hpp"
#include "SorrelFramework/Scan/UnreadFolders.hpp"
#include "SorrelFramework/Units/LogService.hpp"
#include "SorrelFramework/Units/StreamFileHash.hpp"
#include "SorrelFramework/Units/TerminalTool.hpp"

namespace sorrel {
namespace {

/// The feature whose scan hashes files; its number is fixed in every catalogue.
constexpr Integer kDuplicateFeature = 7;

std::int64_t sizeOf(const URL& url, Integer kind, const StopTest& stop, UnreadFolderHandler unread) {
  if (kind == rawValue(FilesKind::File)) {
    const auto values = resourceValues(Host::current().matchingLetterCase(url), NSURLFileSizeKey);
    return values ? values->fileSize.value_or(SuperScanService::defaultSize) : SuperScanService::defaultSize;
  }
  return url.isFileURL() ? sizeOfTree(url.path(), stop, std::move(unread)) : 0;
}

Ref<FileInformation> recordOf(const URL& given, ResourceKeys keys, const RecordTemplate& common,
                              std::optional<std::int64_t> inputSize) {
  const URL url = Host::current().matchingLetterCase(given);
  auto values = resourceValues(url, keys);
  if (!values) return nullptr;
  const Integer kind = kindOf(*values);
  const std::int64_t size = inputSize ? *inputSize : SuperScanService::calculateSize(url, kind);
  return makeRecord(common, url, *values, kind, size, DeletionRule().canDelete(url.path()));
}

/// A request with what the operations that applications call have in common.
WalkRequest requestFor(const FeatureInformation& feature, CategoryInformation& category, Integer state,
                       Integer scanID) {
  WalkRequest request;
  request.unread = UnreadFolders::handler(feature.finderID);
  request.record = {state, 0, category.finderID, Ref<CategoryInformation>(category)};
  request.stop.first = &scanStatusTable().cell(feature.finderID);
  request.stop.second = &scanStatusTable().cell(scanID);
  return request;
}

}  // namespace

std::shared_ptr<PercentService> PercentServiceSlot::get() const {
  const std::lock_guard lock(mutex_);
  return service_;
}

std::shared_ptr<PercentService> PercentServiceSlot::exchange(std::shared_ptr<PercentService> service) {
  const std::lock_guard lock(mutex_);
  return std::exchange(service_, std::move(service));
}

void PercentServiceSlot::remove(const std::shared_ptr<PercentService>& service) {
  const std::lock_guard lock(mutex_);
  if (service_ == service) service_ = nullptr;
}

ScanStatusTable& SuperScanService::scanStatus = scanStatusTable();
PercentServiceSlot SuperScanService::percentService;

const Image& SuperScanService::defaultImage() { return defaultRecordImage(); }

URL SuperScanService::supportFolder() {
  const std::string folder = Host::current().documentsFolder();
  if (folder.empty()) fatalStop(kUnexpectedNil, "the user has no documents folder");
  return URL::fileURL(folder, true);
}

void SuperScanService::stopScan(FeatureInformation& featureInfo) {
  const Integer finderID = featureInfo.finderID;
  LogService::shard().log(LogService::LogLevel::Info, "Stop Scan FeatureInfo:" + std::to_string(finderID));
  if (scanStatus.get(finderID) == ScanState::suspend) return;
  if (const auto service = percentService.exchange(nullptr)) service->stopTime();
  scanStatus.set(finderID, ScanState::suspend);
  if (finderID == kDuplicateFeature)
    StreamFileHashUnit::shard().scanState = static_cast<int>(ScanState::suspend);
}

std::string SuperScanService::handleURLToString(const URL& url) { return pathTextOf(url); }

std::string SuperScanService::handleStringToString(std::string_view url) { return pathInText(url); }

std::vector<Ref<CategoryInformation>> SuperScanService::largeAndOldFileFilterAllFile(
    const std::vector<Ref<CategoryInformation>>& /*category*/) {
  return {};
}

std::int64_t SuperScanService::calculateSize(const URL& url, Integer kind) {
  return sizeOf(url, kind, {}, {});
}

std::int64_t SuperScanService::appCalculateSize(const URL& url, Integer kind, Integer finderID) {
  StopTest stop;
  stop.first = &scanStatus.cell(finderID);
  return sizeOf(url, kind, stop, UnreadFolders::handler(finderID));
}

std::int64_t SuperScanService::getPackageSizeFromTerminal(const URL& url) {
  return packageSizeInOutput(TerminalUtils::runTerminal("/usr/bin/mdls", {url.path()}));
}

Ref<FileInformation> SuperScanService::getFileInformationFromUrl(const URL& url,
                                                                 ResourceKeys propertiesForKey,
                                                                 CategoryInformation& categoryInfo,
                                                                 std::optional<std::int64_t> inputSize) {
  const RecordTemplate common{NSControlStateValueOff, static_cast<Integer>(categoryInfo.childrens.size()),
                              categoryInfo.finderID, Ref<CategoryInformation>(categoryInfo)};
  return recordOf(url, propertiesForKey, common, inputSize);
}

Ref<FileInformation> SuperScanService::getFileInformationFromUrl(const URL& url,
                                                                 ResourceKeys propertiesForKey,
                                                                 std::optional<std::int64_t> inputSize) {
  return recordOf(url, propertiesForKey, {}, inputSize);
}

void SuperScanService::getListFromUrls(FeatureInformation& featureInfo, const std::vector<URL>& urls,
                                       Integer state, ResourceKeys propertiesForKey,
                                       EnumerationOptions enumOptions, Integer scanID, ProgressFunc progress,
                                       PercentFunc showPercent, FilterFunc filterFunc, RootsDoneFunc done,
                                       std::shared_ptr<WeftSerialQueue> dispatchQueue,
                                       CategoryInformation& categoryInfo, bool isContainZeroItem) {
  WalkRequest request = requestFor(featureInfo, categoryInfo, state, scanID);
  request.keys = propertiesForKey;
  request.options = enumOptions;
  request.filter = std::move(filterFunc);
  request.isContainZeroItem = isContainZeroItem;
  request.progress = std::make_shared<const ProgressFunc>(std::move(progress));
  walkRoots(urls, request, std::move(dispatchQueue), std::move(showPercent), std::move(done));
}

void SuperScanService::getListFromUrl(FeatureInformation& featureInfo, const URL& url, Integer state,
                                      ResourceKeys propertiesForKey, EnumerationOptions enumOptions,
                                      Integer scanID, EnumerationErrorHandler errorHandle,
                                      FilterFunc filterFunc, ProgressFunc progress, const RootDoneFunc& done,
                                      CategoryInformation& categoryInfo, bool isContainZeroItem) {
  WalkRequest request = requestFor(featureInfo, categoryInfo, state, scanID);
  request.keys = propertiesForKey;
  request.options = enumOptions;
  request.filter = std::move(filterFunc);
  request.errorHandler = std::move(errorHandle);
  request.isContainZeroItem = isContainZeroItem;
  request.progress = std::make_shared<const ProgressFunc>(std::move(progress));
  WalkResult result = walkRoot(url, std::move(request));
  done(std::move(result.totals), std::move(result.records));
}

std::vector<std::string> SuperScanService::regexGetSub(std::string_view pattern, std::string_view str) {
  return regexMatches(pattern, str);
}

}  // namespace sorrel
