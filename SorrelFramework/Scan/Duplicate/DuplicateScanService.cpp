#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"

#include <algorithm>
#include <utility>

#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Platform/Queues/GlobalQueue.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateAnalysis.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateCandidates.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateCategories.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicatePlaces.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateTree.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateWalk.hpp"
#include "SorrelFramework/Scan/FinderRun.hpp"
#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Units/LogService.hpp"
#include "SorrelFramework/Units/StreamFileHash.hpp"

namespace sorrel {
namespace {

constexpr std::int64_t kSteps = 4;

void log(std::string text) { LogService::shard().log(LogService::LogLevel::Info, std::move(text)); }

bool isRegularFile(const URL& url) {
  const auto values = resourceValues(url, NSURLIsRegularFileKey);
  return values && values->isRegularFile.value_or(false);
}

FinderRun::Plan planOf(DuplicateScanService::DoneFunc done, WeftQOS qosClass) {
  return {std::move(done), "DuplicateScanService Finish", std::string(DuplicateScanService::kStopLog),
          qosClass};
}

/// The first two stages of a scan.
class DuplicateSearch : public std::enable_shared_from_this<DuplicateSearch> {
 public:
  DuplicateSearch(std::shared_ptr<FinderRun> run, std::int64_t limit, std::size_t entries)
      : run_(std::move(run)), entries_(entries) {
    rules_.limit = limit;
    rules_.libraries = librariesOfHomes();
    rules_.isStopped = [run = run_] { return run->isStopped(); };
    rules_.unread = run_->unreadHandler();
  }

  void start(const std::vector<URL>& list) {
    for (const URL& entry : list) {
      GlobalQueue::submit([self = shared_from_this(), entry] { self->walk(entry); }, run_->qosClass());
    }
  }

 private:
  /// Candidates travel to the queue in batches, one task for many.
  static constexpr std::size_t kBatch = 1024;
  using Batch = std::vector<DuplicateInfo>;

  void walk(const URL& entry) {
    auto batch = std::make_shared<Batch>();
    DuplicateWalk walk(rules_, [&](DuplicateInfo info) {
      batch->push_back(std::move(info));
      if (batch->size() < kBatch) return;
      deliver(std::exchange(batch, std::make_shared<Batch>()));
    });
    if (isRegularFile(entry)) {
      walk.fileInfo(entry);
    } else {
      walk.folderBackTracking(entry);
    }
    if (!batch->empty()) deliver(std::move(batch));
    run_->onQueue([self = shared_from_this()] { self->backTrackingFinish(); });
  }

  void deliver(const std::shared_ptr<Batch>& batch) {
    run_->onQueue([self = shared_from_this(), batch] {
      for (DuplicateInfo& info : *batch) {
        DuplicatesBySize& dictionary = info.fileOrPath ? self->files_ : self->folders_;
        dictionary[info.fileSize].push_back(std::move(info));
      }
      batch->clear();
    });
  }

  void backTrackingFinish() {
    if (run_->endsByStop()) return;
    ++finished_;
    if (finished_ != entries_) return;
    DuplicatesBySize candidates = candidateFolders(std::move(folders_), [this] { return run_->isStopped(); });
    analyseDuplicates(run_, std::move(files_), std::move(candidates));
  }

  std::shared_ptr<FinderRun> run_;
  DuplicateWalkRules rules_;
  std::size_t entries_;
  // Change on the queue alone.
  std::size_t finished_ = 0;
  DuplicatesBySize files_;
  DuplicatesBySize folders_;
};

}  // namespace

Integer DuplicateScanService::limitSize = 512;
bool DuplicateScanService::findsEveryEqualPair = false;
bool DuplicateScanService::ignoresFoldersWithoutHashes = false;
std::map<Integer, std::string> DuplicateScanService::childrenCateogryDict;

std::int64_t DuplicateScanService::limitInBytes() {
  std::int64_t bytes = 0;
  if (__builtin_mul_overflow(limitSize, 1024, &bytes)) fatalStop(kArithmeticOverflow);
  return bytes;
}

void DuplicateScanService::scanDuplicate(FeatureInformation& featureInfo, const std::vector<URL>& scanPaths,
                                         ProgressFunc progress, PercentFunc showPercent,
                                         SingleDoneFunc singleDone, DoneFunc done,
                                         std::shared_ptr<WeftSerialQueue> dispatch, WeftQOS qosClass) {
  log("Start Duplicate FeatureInfo:" + std::to_string(featureInfo.finderID));
  scanProDuplicate(featureInfo, scanPaths, std::move(progress), std::move(showPercent), std::move(singleDone),
                   std::move(done), std::move(dispatch), qosClass);
}

// NOLINTBEGIN(performance-unnecessary-value-param): as all scanners
void DuplicateScanService::scanProDuplicate(FeatureInformation& featureInfo,
                                            const std::vector<URL>& scanPaths, ProgressFunc /*progress*/,
                                            PercentFunc showPercent, SingleDoneFunc /*singleDone*/,
                                            DoneFunc done, std::shared_ptr<WeftSerialQueue> dispatch,
                                            WeftQOS qosClass) {
  // NOLINTEND(performance-unnecessary-value-param)
  const auto bar = std::make_shared<PercentService>(std::move(showPercent), kSteps);
  auto run = ScanRun::begin<FinderRun>(featureInfo, std::move(dispatch), bar, planOf(done, qosClass));
  if (!run) return log("DuplicateScanService Scanning");
  StreamFileHashUnit::shard().scanState = static_cast<int>(ScanState::start);
  log("DuplicateScanService Start");
  const std::int64_t limit = limitInBytes();
  const std::vector<URL> list = duplicatePlaces(scanPaths);

  run->step();
  if (list.empty()) {
    for (int i = 0; i < 3; ++i) run->step();
    log("DuplicateScanService Finish-0");
    run->end();
    if (done) done(featureInfo, 0);
    return;
  }
  std::make_shared<DuplicateSearch>(std::move(run), limit, list.size())->start(list);
}

void DuplicateScanService::stopDuplicate(FeatureInformation& featureInfo, const DoneFunc& done) {
  log(std::string(kStopLog));
  scanStatus.set(featureInfo.finderID, ScanState::end);
  if (done) done(featureInfo, 0);
}

// NOLINTBEGIN(performance-unnecessary-value-param): as all stages
void DuplicateScanService::analysisDataForDuplicate(
    DuplicatesBySize preSizeAndFilePath, DuplicatesBySize sizeAndFolderPath, FeatureInformation& featureInfo,
    ProgressFunc /*progress*/, PercentFunc /*showPercent*/, SingleDoneFunc /*singleDone*/, DoneFunc done,
    std::shared_ptr<WeftSerialQueue> dispatch, std::shared_ptr<PercentService> percentService,
    WeftQOS qosClass) {
  analyseDuplicates(std::make_shared<FinderRun>(featureInfo, std::move(dispatch), std::move(percentService),
                                                planOf(std::move(done), qosClass)),
                    std::move(preSizeAndFilePath), std::move(sizeAndFolderPath));
}

void DuplicateScanService::organizeDataForDuplicate(
    DuplicatesByHash MD5AndFileInfo, DuplicatesByHash MD5AndFolderInfo, FeatureInformation& featureInfo,
    ProgressFunc /*progress*/, PercentFunc /*showPercent*/, SingleDoneFunc /*singleDone*/, DoneFunc done,
    std::shared_ptr<WeftSerialQueue> dispatch, std::shared_ptr<PercentService> percentService) {
  organizeDuplicates(std::make_shared<FinderRun>(featureInfo, std::move(dispatch), std::move(percentService),
                                                 planOf(std::move(done), WeftQOS::Default)),
                     std::move(MD5AndFileInfo), std::move(MD5AndFolderInfo));
}

bool DuplicateScanService::filter(const URL& url, const ResourceValues& values,
                                  EnumerationPosition* position) {
  if (position != nullptr && values.isDirectory.value_or(false) &&
      !isPlainFolderName(url.lastPathComponent())) {
    position->skipDescendants();
  }
  return values.fileSize.value_or(0) > limitInBytes();
}

void DuplicateScanService::scanTestAProDuplicate(FeatureInformation& featureInfo,
                                                 const std::vector<URL>& scanPaths, ProgressFunc progress,
                                                 PercentFunc showPercent, SingleDoneFunc singleDone,
                                                 DoneFunc /*done*/,
                                                 std::shared_ptr<WeftSerialQueue> dispatch) {
  if (featureInfo.categoryInfo.empty()) return;
  const auto left = std::make_shared<std::size_t>(scanPaths.size());
  for (std::size_t i = 0; i < scanPaths.size(); ++i) {
    auto singleDones = [=](const auto& /*details*/, const std::map<URL, ScanFilesInformation>& infos) {
      std::int64_t bytes = 0;
      for (const auto& [url, totals] : infos) bytes = totals.fileSize;
      if (singleDone) singleDone(static_cast<Integer>(i), bytes);
      if (--*left == 0) log("MMTest Scan Done");
    };
    getListFromUrls(featureInfo, {scanPaths[i]}, NSControlStateValueOff, kMemberKeys,
                    NSDirectoryEnumerationSkipsHiddenFiles | NSDirectoryEnumerationSkipsPackageDescendants,
                    featureInfo.finderID, progress, showPercent, filter, singleDones, dispatch,
                    featureInfo.categoryInfo[0]);
  }
}
// NOLINTEND(performance-unnecessary-value-param)

}  // namespace sorrel
