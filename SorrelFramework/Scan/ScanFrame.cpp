#include "SorrelFramework/Scan/ScanFrame.hpp"

#include <iterator>
#include <tuple>

#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Platform/Queues/GlobalQueue.hpp"
#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Scan/RootsWalk.hpp"
#include "SorrelFramework/Scan/ScanRun.hpp"

namespace sorrel {
namespace {

/// The state of a scan. `results` and `left` change only in the plan's last step.
struct CategoryScan {
  std::shared_ptr<ScanRun> run;
  std::shared_ptr<const ProgressFunc> progress;
  ScanPlan plan;
  std::size_t left = 0;  // categories
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
    // The first root's records have their numbers already; assigning the same number again would change
    // nothing.
    if (record->finderID != finderID) record->finderID = finderID;
    ++finderID;
  }
  return joined;
}

/// The last step of a category.
void finishCategory(CategoryScan& scan, Integer index, CategoryResult result) {
  const CategoryResult& stored = scan.results.insert_or_assign(index, std::move(result)).first->second;
  if (scan.plan.categoryDone) scan.plan.categoryDone(index, stored);
  if (--scan.left > 0) return;
  std::int64_t bytes = 0;
  if (scan.plan.fillTree)
    std::ignore = scan.run->changeTree([&] { bytes = scan.plan.fillTree(scan.results); });
  scan.run->end();
  scan.plan.done(std::move(scan.results), bytes);
}

WalkRequest requestFor(const CategoryScan& scan, CategoryInformation& category, CategoryPlan& plan) {
  WalkRequest request;
  request.keys = plan.keys;
  request.options = plan.options;
  request.filter = std::move(plan.filter);
  request.unread = scan.run->unreadHandler();
  request.record = {category.state, 0, category.finderID, Ref<CategoryInformation>(category)};
  request.stop = scan.run->stopTest();
  request.progress = scan.progress;
  return request;
}

void walkCategory(const std::shared_ptr<CategoryScan>& scan, Integer index, CategoryInformation& category) {
  CategoryPlan plan = scan->plan.category(category);
  const std::vector<URL>& roots = plan.roots ? *plan.roots : category.urls;
  const auto step = [scan](float /*share*/) { scan->run->step(); };
  auto done = [scan, index, touch = std::move(plan.record)](
                  std::map<URL, FileRecords> records, const std::map<URL, ScanFilesInformation>& totals) {
    auto result = std::make_shared<CategoryResult>(joinRoots(std::move(records), totals));
    if (touch) {
      for (const Ref<FileInformation>& record : result->first) touch(*record);
    }
    scan->plan.lastStep([scan, index, result] { finishCategory(*scan, index, std::move(*result)); });
  };
  if (plan.roots && plan.roots->empty()) {
    step(1);
    return done({}, {});
  }
  if (roots.empty()) return scan->run->keepOpen();
  walkRoots(roots, requestFor(*scan, category, plan), scan->run->queue(), step, std::move(done));
}

}  // namespace

void runCategoryScan(FeatureInformation& featureInfo, ProgressFunc progress, PercentFunc showPercent,
                     ScanPlan plan, std::shared_ptr<WeftSerialQueue> dispatch) {
  const std::size_t count = featureInfo.categoryInfo.size();
  const auto bar = std::make_shared<PercentService>(std::move(showPercent), static_cast<Integer>(count));
  auto run = ScanRun::begin(featureInfo, std::move(dispatch), bar, ScanSteps::BarInFlight);
  if (!run) return;
  if (count == 0) return run->keepOpen();
  const auto scan = std::make_shared<CategoryScan>();
  scan->run = std::move(run);
  scan->progress = std::make_shared<const ProgressFunc>(std::move(progress));
  scan->plan = std::move(plan);
  scan->left = count;
  for (std::size_t i = 0; i < count; ++i) {
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
  plan.done = [done = std::move(done)](CategoryResults results, std::int64_t /*bytes*/) {
    done(std::move(results));
  };
  runCategoryScan(featureInfo, std::move(progress), std::move(showPercent), std::move(plan),
                  std::move(dispatch));
}

std::function<void(std::function<void()>)> onSerialQueue(std::shared_ptr<WeftSerialQueue> dispatch) {
  return [dispatch = std::move(dispatch)](std::function<void()> step) {
    submitWithRetry(dispatch, std::move(step));
  };
}

}  // namespace sorrel
