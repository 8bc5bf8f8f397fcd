#include "SorrelFramework/Scan/ScanFrame.hpp"

#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Platform/Queues/GlobalQueue.hpp"
#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Scan/SuperScanService.hpp"
#include "SorrelFramework/Scan/UnreadFolders.hpp"

namespace sorrel {
namespace {

/// A scan under way. `results` changes only in the plan's last step.
struct CategoryScan {
  Ref<FeatureInformation> feature;
  ProgressFunc progress;
  ScanPlan plan;
  std::shared_ptr<WeftSerialQueue> dispatch;
  std::size_t categoryCount = 0;
  std::size_t finished = 0;
  CategoryResults results;
};

void addTotals(ScanFilesInformation& sum, const ScanFilesInformation& root) {
  sum.folderSize = checkedAdd(sum.folderSize, root.folderSize);
  sum.folderNumber = checkedAdd(sum.folderNumber, root.folderNumber);
  sum.fileSize = checkedAdd(sum.fileSize, root.fileSize);
  sum.fileNumber = checkedAdd(sum.fileNumber, root.fileNumber);
}

CategoryResult joinRoots(std::map<URL, FileRecords>&& records,
                         const std::map<URL, ScanFilesInformation>& totals) {
  CategoryResult joined;
  for (auto& [url, rootRecords] : records) {
    if (joined.first.empty()) {
      joined.first = std::move(rootRecords);
    } else {
      joined.first.insert(joined.first.end(), std::make_move_iterator(rootRecords.begin()),
                          std::make_move_iterator(rootRecords.end()));
    }
  }
  for (const auto& [url, rootTotals] : totals) addTotals(joined.second, rootTotals);
  Integer finderID = 0;
  for (const Ref<FileInformation>& record : joined.first) {
    // The first root's records have their numbers already; the same number again would change nothing.
    if (record->finderID != finderID) record->finderID = finderID;
    ++finderID;
  }
  return joined;
}

/// The last step of a category.
void finishCategory(CategoryScan& scan, Integer index, CategoryResult result) {
  const CategoryResult& stored = scan.results.insert_or_assign(index, std::move(result)).first->second;
  ++scan.finished;
  if (scan.plan.categoryDone) scan.plan.categoryDone(index, stored);
  if (scan.finished != scan.categoryCount) return;
  SuperScanService::scanStatus.set(scan.feature->finderID, ScanState::end);
  scan.plan.done(std::move(scan.results));
}

void stepTheBar(float /*share*/) {
  if (const auto service = SuperScanService::percentService.get()) service->progressStep();
}

void walkCategory(const std::shared_ptr<CategoryScan>& scan, Integer index, CategoryInformation& category) {
  CategoryPlan plan = scan->plan.category(category);
  const std::vector<URL>& roots = plan.roots ? *plan.roots : category.urls;
  auto done = [scan, index, touch = std::move(plan.record)](
                  std::map<URL, FileRecords> records, const std::map<URL, ScanFilesInformation>& totals) {
    auto result = std::make_shared<CategoryResult>(joinRoots(std::move(records), totals));
    if (touch) {
      for (const Ref<FileInformation>& record : result->first) touch(*record);
    }
    scan->plan.lastStep([scan, index, result] { finishCategory(*scan, index, std::move(*result)); });
  };
  if (plan.roots && plan.roots->empty()) {
    stepTheBar(1);
    return done({}, {});
  }
  SuperScanService::getListFromUrls(*scan->feature, roots, category.state, plan.keys, plan.options,
                                    scan->feature->finderID, scan->progress, stepTheBar,
                                    std::move(plan.filter), std::move(done), scan->dispatch, category);
}

}  // namespace

void runCategoryScan(FeatureInformation& featureInfo, ProgressFunc progress, PercentFunc showPercent,
                     ScanPlan plan, std::shared_ptr<WeftSerialQueue> dispatch) {
  if (!SuperScanService::scanStatus.startUnlessRunning(featureInfo.finderID)) return;
  UnreadFolders::clear(featureInfo.finderID);
  const auto scan = std::make_shared<CategoryScan>();
  scan->feature = Ref(featureInfo);
  scan->progress = std::move(progress);
  scan->plan = std::move(plan);
  scan->dispatch = std::move(dispatch);
  scan->categoryCount = featureInfo.categoryInfo.size();

  const auto bar =
      std::make_shared<PercentService>(std::move(showPercent), static_cast<Integer>(scan->categoryCount));
  SuperScanService::percentService.exchange(bar);
  bar->startTime();
  for (std::size_t i = 0; i < scan->categoryCount; ++i) {
    GlobalQueue::submit([scan, i, category = featureInfo.categoryInfo.ref(i)] {
      walkCategory(scan, static_cast<Integer>(i), *category);
    });
  }
}

void runJunkScan(FeatureInformation& featureInfo, ProgressFunc progress, PercentFunc showPercent,
                 SingleDoneFunc singleDone, std::function<void(CategoryResults)> done,
                 std::shared_ptr<WeftSerialQueue> dispatch,
                 std::function<CategoryPlan(const CategoryInformation&)> category) {
  ScanPlan plan;
  plan.category = std::move(category);
  plan.lastStep = onSerialQueue(dispatch);
  plan.categoryDone = [singleDone = std::move(singleDone)](Integer index, const CategoryResult& result) {
    if (singleDone) singleDone(index, checkedAdd(result.second.fileSize, result.second.folderSize));
  };
  plan.done = std::move(done);
  runCategoryScan(featureInfo, std::move(progress), std::move(showPercent), std::move(plan),
                  std::move(dispatch));
}

std::function<void(std::function<void()>)> onSerialQueue(std::shared_ptr<WeftSerialQueue> dispatch) {
  return [dispatch = std::move(dispatch)](std::function<void()> step) {
    submitWithRetry(dispatch, std::move(step));
  };
}

}  // namespace sorrel
