#include "SorrelFramework/Scan/RootsWalk.hpp"

#include <cerrno>
#include <map>
#include <string>
#include <utility>

#include "SorrelFramework/Platform/Files/FileManager.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Queues/Countdown.hpp"
#include "SorrelFramework/Platform/Queues/GlobalQueue.hpp"
#include "SorrelFramework/Scan/PathText.hpp"
#include "SorrelFramework/Scan/ProgressPost.hpp"
#include "SorrelFramework/Scan/TreeWalk.hpp"
#include "SorrelFramework/Scan/TreeWorker.hpp"

namespace sorrel {
namespace {

/// The results of several roots. They change on the serial queue alone.
struct RootsResults {
  std::map<URL, FileRecords> records;
  std::map<URL, ScanFilesInformation> totals;
};

/// A root that is a plain file: one record, and no call of the filter.
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
  if (roots.empty()) return;
  const auto all = std::make_shared<RootsResults>();
  const auto left =
      Countdown::from(roots.size(), [all, showPercent = std::move(showPercent), done = std::move(done)] {
        if (showPercent) showPercent(1);
        if (done) done(std::move(all->records), std::move(all->totals));
      });
  for (const URL& root : roots) {
    GlobalQueue::submit([all, left, root, request, queue] {
      // Shared, so that a task that the queue refuses and accepts later does not copy a million handles.
      auto result = std::make_shared<WalkResult>(walkRoot(root, request));
      submitWithRetry(queue, [all, left, root, result] {
        all->totals.insert_or_assign(root, std::move(result->totals));
        all->records.insert_or_assign(root, std::move(result->records));
        left->arrive();
      });
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
