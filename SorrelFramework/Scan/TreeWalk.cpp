#include "SorrelFramework/Scan/TreeWalk.hpp"

#include <cerrno>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Platform/Files/FolderStream.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Machine/ScanRoot.hpp"
#include "SorrelFramework/Platform/Queues/GlobalQueue.hpp"
#include "SorrelFramework/Scan/TreeWorker.hpp"

namespace sorrel {
namespace {

void workUntilOver(TreeJob& job, TreeWorker& worker, std::optional<WalkWork> work) {
  while (work) {
    worker.run(std::move(*work));
    work = job.team.next();
  }
}

void callHelpers(const std::shared_ptr<TreeJob>& job) {
  for (unsigned i = 1; i < GlobalQueue::width(); ++i) {
    GlobalQueue::submit([job] {
      if (!job->team.join()) return;
      std::optional<WalkWork> work = job->team.next();
      if (!work) return;
      TreeWorker worker(*job);
      workUntilOver(*job, worker, std::move(work));
    });
  }
}

/// Turns the folders that a walk kept into its result: sums are propagated upwards, records are emitted in
/// order. A folder whose sum is incomplete because of a stop gets no record, as a partial size would be taken
/// for the whole.
class Harvest {
 public:
  Harvest(bool containsZeroItems, WalkResult& result)
      : containsZeroItems_(containsZeroItems), result_(result) {}

  void run(WalkFolder& root) {
    path_.push_back({&root, 0, 0, kNoRecord, false});
    while (!path_.empty()) {
      Step& step = path_.back();
      if (step.next < step.folder->items.size()) {
        goInto(step.folder->items[step.next++]);
      } else {
        finish();
      }
    }
    closeGaps();
  }

 private:
  static constexpr std::size_t kNoRecord = static_cast<std::size_t>(-1);
  struct Step {
    WalkFolder* folder;
    std::size_t next;
    std::int64_t bytes;  // of the finished folders below
    std::size_t record;  // index of the folder's own record
    bool isCut;          // true if one of the folders below is cut
  };

  void goInto(WalkItem& item) {
    std::size_t index = kNoRecord;
    if (item.record) {
      index = result_.records.size();
      result_.records.push_back(std::move(item.record));
    }
    if (item.below != nullptr) path_.push_back({item.below, 0, 0, index, false});
  }

  void finish() {
    const Step step = path_.back();
    path_.pop_back();
    const std::int64_t bytes = checkedAdd(step.bytes, step.folder->bytes.load(std::memory_order_relaxed));
    const bool isCut = step.isCut || step.folder->isCut.load(std::memory_order_relaxed);
    step.folder->items = {};  // the walk's memory is freed while the result's grows
    if (step.record != kNoRecord) finishRecord(result_.records[step.record], bytes, isCut);
    if (path_.empty()) return;
    path_.back().bytes = checkedAdd(path_.back().bytes, bytes);
    path_.back().isCut = path_.back().isCut || isCut;
  }

  void finishRecord(Ref<FileInformation>& record, std::int64_t bytes, bool isCut) {
    if (record->fileKind == rawValue(FilesKind::File)) return;
    if (isCut) {
      record = nullptr;
      return;
    }
    record->size = bytes;
    result_.totals.folderSize = checkedAdd(result_.totals.folderSize, bytes);
    ++result_.totals.folderNumber;
    if (bytes == 0 && !containsZeroItems_) record = nullptr;
  }

  /// Records are numbered in order once it is known which of them stay.
  void closeGaps() {
    std::size_t count = 0;
    for (Ref<FileInformation>& record : result_.records) {
      if (!record) continue;
      record->finderID = static_cast<Integer>(count);
      if (&result_.records[count] != &record) result_.records[count] = std::move(record);
      ++count;
    }
    result_.records.resize(count);
  }

  bool containsZeroItems_;
  WalkResult& result_;
  std::vector<Step> path_;
};

}  // namespace

WalkResult walkTree(const URL& root, const WalkRequest& request) {
  WalkResult result;
  result.totals.url = root;
  if (!root.isFileURL()) return result;
  const URL place = Host::current().followingLinks(root);
  FileDescriptor folder = openFolder(place.path(), [&request] { return request.stop.isStopped(); });
  if (!folder.isOpen()) {
    if (errno != ENOENT && errno != ENOTDIR) TreeJob(request).report(root, errno);
    return result;
  }

  std::string urlText = place.absoluteString();
  if (!urlText.ends_with('/')) urlText += '/';
  const auto job = std::make_shared<TreeJob>(request);
  WalkFolder top;
  TreeWorker owner(*job);
  owner.onLargeWalk = [&job] { callHelpers(job); };
  workUntilOver(*job, owner, WalkWork{std::move(folder), &top, std::move(urlText), 1, false});

  result.totals.fileSize = job->fileBytes();
  result.totals.fileNumber = job->fileCount();
  Harvest(request.isContainZeroItem, result).run(top);
  return result;
}

std::int64_t sizeOfTree(const std::string& path, const StopTest& stop, UnreadFolderHandler unread) {
  WalkRequest request;
  request.stop = stop;
  request.unread = std::move(unread);
  TreeJob job(request);
  const std::string place = Host::current().followingLinks(path);
  FileDescriptor folder = openFolder(place, [&stop] { return stop.isStopped(); });
  if (!folder.isOpen()) {
    job.note(path, errno);
    return 0;
  }
  WalkFolder top;
  TreeWorker worker(job);
  worker.run(WalkWork{std::move(folder), &top, {}, 1, true});
  return top.bytes.load();
}

}  // namespace sorrel
