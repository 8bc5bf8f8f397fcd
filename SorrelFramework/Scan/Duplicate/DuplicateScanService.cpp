#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"

#include <cstddef>
#include <utility>

#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Platform/Queues/Countdown.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateAnalysis.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateCandidates.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateCategories.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateListing.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicatePlaces.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateTree.hpp"
#include "SorrelFramework/Scan/FinderRun.hpp"
#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Scan/ScanPlaces.hpp"
#include "SorrelFramework/Scan/ScanStages.hpp"
#include "SorrelFramework/Units/LogService.hpp"
#include "SorrelFramework/Units/StreamFileHash.hpp"

namespace sorrel {
namespace {

constexpr std::int64_t kSteps = 4;

void log(std::string text) { LogService::shard().log(LogService::LogLevel::Info, std::move(text)); }

FinderRun::Plan planOf(DuplicateScanService::DoneFunc done, WeftQOS qosClass) {
  return {std::move(done), "DuplicateScanService Finish", std::string(DuplicateScanService::kStopLog),
          qosClass};
}

DuplicateSearchRef makeSearch(std::shared_ptr<FinderRun> run, DuplicateSettings settings) {
  auto search = std::make_shared<DuplicateSearch>();
  search->run = std::move(run);
  search->settings = settings;
  return search;
}

DuplicateSettings settingsOfNow() {
  return {DuplicateScanService::limitInBytes(), DuplicateScanService::findsEveryEqualPair,
          DuplicateScanService::ignoresFoldersWithoutHashes};
}

void chooseFolders(DuplicateSearch& search, const StageThrough& through) {
  search.folders =
      candidateFolders(std::move(search.folders), [run = search.run] { return run->isStopped(); });
  through(std::to_string(memberCount(search.folders)) + " folders");
}

/// Places in the list of stages.
constexpr std::ptrdiff_t kWalkStage = 0;
constexpr std::ptrdiff_t kHashStage = 2;
constexpr std::ptrdiff_t kTreeStage = 4;

/// The stages of a search in their order. Each begins on the queue of the scan.
void runStagesFrom(std::ptrdiff_t first, const DuplicateSearchRef& search,
                   const std::vector<URL>& places = {}) {
  std::vector<ScanStage> stages = {
      {"walk", [search, places](const StageThrough& through) { listCandidates(search, places, through); }},
      {"candidates", [search](const StageThrough& through) { chooseFolders(*search, through); }},
      {"folder hashes", [search](const StageThrough& through) { hashFolders(search, through); }},
      {"file hashes", [search](const StageThrough& through) { hashFiles(search, through); }},
      {"tree",
       [search](const StageThrough& through) {
         buildDuplicateTree(search, DuplicateScanService::childrenCateogryDict, through);
       }},
  };
  stages.erase(stages.begin(), stages.begin() + first);
  // Without a name: applications know the lines that this scan logs, and there are no others.
  runStages("", std::move(stages), [run = search->run] { return run->endsByStop(); });
}

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
  const DuplicateSettings settings = settingsOfNow();
  const std::vector<URL> list = duplicatePlaces(scanPaths);

  run->step();
  if (list.empty()) {
    for (int i = 0; i < 3; ++i) run->step();
    log("DuplicateScanService Finish-0");
    run->end();
    if (done) done(featureInfo, 0);
    return;
  }
  runStagesFrom(kWalkStage, makeSearch(std::move(run), settings), list);
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
  const auto search =
      makeSearch(std::make_shared<FinderRun>(featureInfo, std::move(dispatch), std::move(percentService),
                                             planOf(std::move(done), qosClass)),
                 settingsOfNow());
  search->files = std::move(preSizeAndFilePath);
  search->folders = std::move(sizeAndFolderPath);
  runStagesFrom(kHashStage, search);
}

void DuplicateScanService::organizeDataForDuplicate(
    DuplicatesByHash MD5AndFileInfo, DuplicatesByHash MD5AndFolderInfo, FeatureInformation& featureInfo,
    ProgressFunc /*progress*/, PercentFunc /*showPercent*/, SingleDoneFunc /*singleDone*/, DoneFunc done,
    std::shared_ptr<WeftSerialQueue> dispatch, std::shared_ptr<PercentService> percentService) {
  const auto search =
      makeSearch(std::make_shared<FinderRun>(featureInfo, std::move(dispatch), std::move(percentService),
                                             planOf(std::move(done), WeftQOS::Default)),
                 {});
  search->filesByHash = std::move(MD5AndFileInfo);
  search->foldersByHash = std::move(MD5AndFolderInfo);
  runStagesFrom(kTreeStage, search);
}

std::tuple<std::string, std::vector<URL>, std::int64_t, std::unordered_set<URL>>
DuplicateScanService::getMD5FromFolderPath(const URL& folderURL) {
  return hashesInFolder(folderURL);
}

std::vector<URL> DuplicateScanService::placesInHome(const URL& home) { return placesToScanInHome(home); }

std::vector<Integer> DuplicateScanService::sortFile(const FileInformation& file) { return kindsOfFile(file); }

std::tuple<std::int64_t, FileRecords, std::string> DuplicateScanService::sortCategory(
    CategoryInformation& allCategory) {
  GroupRepair repair = repairDuplicates(allCategory, childrenCateogryDict);
  return {repair.deleted, std::move(repair.failures), std::move(repair.texts)};
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
  if (scanPaths.empty()) return;
  const auto left = Countdown::from(scanPaths.size(), [] { log("MMTest Scan Done"); });
  for (std::size_t i = 0; i < scanPaths.size(); ++i) {
    auto singleDones = [=](const auto& /*details*/, const std::map<URL, ScanFilesInformation>& infos) {
      std::int64_t bytes = 0;
      for (const auto& [url, totals] : infos) bytes = totals.fileSize;
      if (singleDone) singleDone(static_cast<Integer>(i), bytes);
      left->arrive();
    };
    getListFromUrls(featureInfo, {scanPaths[i]}, NSControlStateValueOff, kMemberKeys,
                    NSDirectoryEnumerationSkipsHiddenFiles | NSDirectoryEnumerationSkipsPackageDescendants,
                    featureInfo.finderID, progress, showPercent, filter, singleDones, dispatch,
                    featureInfo.categoryInfo[0]);
  }
}
// NOLINTEND(performance-unnecessary-value-param)

}  // namespace sorrel
