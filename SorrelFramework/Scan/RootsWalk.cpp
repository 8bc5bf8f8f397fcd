#include "SorrelFramework/Scan/RootsWalk.hpp"

#include <cerrno>
#include <cstddef>
#include <map>
#include <string>
#include <utility>

#include "SorrelFramework/Platform/Files/FileManager.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Queues/GlobalQueue.hpp"
#include "SorrelFramework/Scan/PathText.hpp"
#include "SorrelFramework/Scan/ProgressPost.hpp"
#include "SorrelFramework/Scan/TreeWalk.hpp"
#include "SorrelFramework/Scan/TreeWorker.hpp"

namespace sorrel {
namespace {

/// The cells that the walks of several roots share. They change on the serial queue alone.
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
  const std::int64_t size = values->fileSize.value_or(kDefaultRecordSize);
  const bool canDelete = DeletionRule().canDelete(pathInText(url.absoluteString()));
  if (request.isContainZeroItem || size > 0) {
    result.records.push_back(
        makeRecord(request.record, url, *values, rawValue(FilesKind::File), size, canDelete));
  }
  ProgressPost(request.progress).add(url, size);
  result.totals.fileSize = size;
  result.totals.fileNumber = 1;
  return result;
}

/// pathTextOf() has no text for names that are not UTF-8, which a folder here may have.
std::string pathOfRoot(const URL& url) {
  std::string path = pathTextOf(url);
  return path.empty() && url.isFileURL() && !url.isEmptyPath() ? url.path() : path;
}

bool keepsEverything(const URL& /*url*/, const ResourceValues& /*values*/,
                     EnumerationPosition* /*position*/) {
  return true;
}

}  // namespace

void walkRoots(const std::vector<URL>& roots, const WalkRequest& request,
               std::shared_ptr<WeftSerialQueue> queue, PercentFunc showPercent, RootsDoneFunc done) {
  const auto walk = std::make_shared<RootsWalk>();
  walk->count = roots.size();
  walk->showPercent = std::move(showPercent);
  walk->done = std::move(done);
  for (const URL& root : roots) {
    GlobalQueue::submit([walk, root, request, queue] {
      // Shared, so that a task that the queue refuses and takes later does not copy a million handles.
      auto result = std::make_shared<WalkResult>(walkRoot(root, request));
      submitWithRetry(queue, [walk, root, result] { walk->finishRoot(root, std::move(*result)); });
    });
  }
}

WalkResult walkRoot(const URL& root, WalkRequest request) {
  if (!request.filter) request.filter = keepsEverything;
  WalkResult result;
  bool isDirectory = false;
  errno = 0;
  if (fileExists(Host::current().followingLinks(pathOfRoot(root)), &isDirectory)) {
    result = isDirectory ? walkTree(root, request) : recordPlainFile(root, request);
  } else if (errno != 0 && errno != ENOENT && errno != ENOTDIR) {
    TreeJob(request).report(root, errno);
  }
  result.totals.url = root;
  return result;
}

}  // namespace sorrel
