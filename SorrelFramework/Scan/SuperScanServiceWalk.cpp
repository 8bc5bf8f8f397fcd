// The walking routine of SuperScanService.

#include <cerrno>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "SorrelFramework/Platform/Files/FileManager.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Queues/GlobalQueue.hpp"
#include "SorrelFramework/Scan/ItemProcedure.hpp"
#include "SorrelFramework/Scan/ProgressPost.hpp"
#include "SorrelFramework/Scan/SuperScanService.hpp"
#include "SorrelFramework/Scan/TreeWalk.hpp"
#include "SorrelFramework/Scan/TreeWorker.hpp"
#include "SorrelFramework/Scan/UnreadFolders.hpp"

namespace sorrel {
namespace {

/// The cells that the walks of several roots share. They change on the dispatch queue alone.
struct RootsWalk {
  std::size_t count = 0;
  std::size_t finished = 0;
  std::map<URL, FileRecords> records;
  std::map<URL, ScanFilesInformation> totals;
  PercentFunc showPercent;
  RootsDoneFunc done;

  void finishRoot(const URL& url, WalkResult result) {
    ++finished;
    totals.insert_or_assign(url, std::move(result.totals));
    records.insert_or_assign(url, std::move(result.records));
    if (finished != count) return;
    if (showPercent) showPercent(static_cast<float>(finished) / static_cast<float>(count));
    if (done) done(std::move(records), std::move(totals));
  }
};

/// A root that is a plain file: one record, and no question to the filter.
WalkResult recordPlainFile(const URL& given, const WalkRequest& request) {
  WalkResult result;
  const URL url = Host::current().matchingLetterCase(given);
  auto values = resourceValues(url, request.keys);
  if (!values) return result;
  const std::int64_t size = values->fileSize.value_or(SuperScanService::defaultSize);
  const bool canDelete =
      DeletionRule().canDelete(SuperScanService::handleStringToString(url.absoluteString()));
  if (request.isContainZeroItem || size > 0) {
    result.records.push_back(
        makeRecord(request.record, url, *values, rawValue(FilesKind::File), size, canDelete));
  }
  ProgressPost(request.progress).add(url, size);
  result.totals.fileSize = size;
  result.totals.fileNumber = 1;
  return result;
}

/// handleURLToString has no text for names that are no UTF-8, which a folder here may well bear.
std::string pathOfRoot(const URL& url) {
  std::string path = SuperScanService::handleURLToString(url);
  return path.empty() && url.isFileURL() && !url.isEmptyPath() ? url.path() : path;
}

bool keepsEverything(const URL& /*url*/, const ResourceValues& /*values*/,
                     EnumerationPosition* /*position*/) {
  return true;
}

}  // namespace

// NOLINTBEGIN(performance-unnecessary-value-param): each root's task has copies of its own
void SuperScanService::getListFromUrls(FeatureInformation& featureInfo, const std::vector<URL>& urls,
                                       Integer state, ResourceKeys propertiesForKey,
                                       EnumerationOptions enumOptions, Integer scanID, ProgressFunc progress,
                                       PercentFunc showPercent, FilterFunc filterFunc, RootsDoneFunc done,
                                       std::shared_ptr<WeftSerialQueue> dispatchQueue,
                                       CategoryInformation& categoryInfo, bool isContainZeroItem) {
  // NOLINTEND(performance-unnecessary-value-param)
  const auto walk = std::make_shared<RootsWalk>();
  walk->count = urls.size();
  walk->showPercent = std::move(showPercent);
  walk->done = std::move(done);
  for (const URL& url : urls) {
    GlobalQueue::submit([=, feature = Ref(featureInfo), category = Ref(categoryInfo)] {
      getListFromUrl(
          *feature, url, state, propertiesForKey, enumOptions, scanID, nullptr, filterFunc, progress,
          [&](ScanFilesInformation totals, FileRecords records) {
            // Shared, so that a task that the queue refuses and takes later does not copy a million handles.
            auto result = std::make_shared<WalkResult>(WalkResult{std::move(totals), std::move(records)});
            submitWithRetry(dispatchQueue,
                            [walk, url, result] { walk->finishRoot(url, std::move(*result)); });
          },
          *category, isContainZeroItem);
    });
  }
}

void SuperScanService::getListFromUrl(FeatureInformation& featureInfo, const URL& url, Integer state,
                                      ResourceKeys propertiesForKey, EnumerationOptions enumOptions,
                                      Integer scanID, EnumerationErrorHandler errorHandle,
                                      FilterFunc filterFunc, ProgressFunc progress, const RootDoneFunc& done,
                                      CategoryInformation& categoryInfo, bool isContainZeroItem) {
  WalkRequest request;
  request.keys = propertiesForKey;
  request.options = enumOptions;
  request.filter = filterFunc ? std::move(filterFunc) : FilterFunc(keepsEverything);
  request.errorHandler = std::move(errorHandle);
  request.unread = UnreadFolders::handler(featureInfo.finderID);
  request.record = {state, 0, categoryInfo.finderID, Ref<CategoryInformation>(categoryInfo)};
  request.isContainZeroItem = isContainZeroItem;
  request.stop = {&scanStatus.cell(featureInfo.finderID), &scanStatus.cell(scanID)};
  request.progress = std::make_shared<const ProgressFunc>(std::move(progress));

  WalkResult result;
  bool isDirectory = false;
  errno = 0;
  if (fileExists(Host::current().followingLinks(pathOfRoot(url)), &isDirectory)) {
    result = isDirectory ? walkTree(url, request) : recordPlainFile(url, request);
  } else if (errno != 0 && errno != ENOENT && errno != ENOTDIR) {
    TreeJob(request).report(url, errno);
  }
  result.totals.url = url;
  done(std::move(result.totals), std::move(result.records));
}

}  // namespace sorrel
