#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Platform/Queues/WeftSerialQueue.hpp"
#include "SorrelFramework/Scan/ScanTypes.hpp"

namespace sorrel {

/// The records of one category and the sum of its roots' totals; the url of the totals is that of the empty
/// path.
using CategoryResult = std::pair<FileRecords, ScanFilesInformation>;
/// By the index of the category in the feature's categoryInfo.
using CategoryResults = std::map<Integer, CategoryResult>;

/// One category is finished: its index and its bytes.
using SingleDoneFunc = std::function<void(Integer index, std::int64_t size)>;

/// How the walk treats one category.
struct CategoryPlan {
  ResourceKeys keys;
  EnumerationOptions options = 0;
  FilterFunc filter;  ///< keeps everything if empty
  /// Roots that replace the category's urls; without a value the urls are used. An empty list gives an empty
  /// result.
  std::optional<std::vector<URL>> roots;
  std::function<void(FileInformation&)> record;  ///< a final change to each record, on the serial queue
};

/// The differences between the scanners of the family. Everything they share is in runCategoryScan().
struct ScanPlan {
  std::function<CategoryPlan(const CategoryInformation&)> category;
  /// Runs the last step of a category, and with it the end of the scan, on the queue that the scanner's
  /// callbacks use.
  std::function<void(std::function<void()>)> lastStep;
  std::function<void(Integer index, const CategoryResult&)> categoryDone;
  /// Writes the results into the tree and returns their bytes, for scanners that do so themselves. Skipped if
  /// a newer scan of the feature owns the tree.
  std::function<std::int64_t(const CategoryResults&)> fillTree;
  std::function<void(CategoryResults, std::int64_t bytes)> done;  ///< with the bytes of fillTree, else 0
};

/// The options of a walk that finds the direct children of its roots, each sized as a whole.
constexpr EnumerationOptions kDirectChildren = NSDirectoryEnumerationSkipsHiddenFiles |
                                               NSDirectoryEnumerationSkipsPackageDescendants |
                                               NSDirectoryEnumerationSkipsSubdirectoryDescendants;

/// The keys that every scanner of the family requests.
constexpr ResourceKeys kRecordKeys = NSURLLocalizedNameKey | NSURLFileSizeKey | NSURLEffectiveIconKey |
                                     NSURLIsDirectoryKey | NSURLIsPackageKey;

/// The frame of a scan. Does nothing at all if the feature's scan runs already. Otherwise: begins a ScanRun,
/// whose bar has one step for each category, walks all categories at once on the global queue, joins the
/// roots of each on `dispatch`, numbers its records from 0, and after the last one ends the run and calls the
/// plan's `done`, once. A scan that was stopped, or replaced by a newer one, ends in the same manner with
/// what it has found. A feature without categories, or a category without roots, keeps the scan from ending.
void runCategoryScan(FeatureInformation& featureInfo, ProgressFunc progress, PercentFunc showPercent,
                     ScanPlan plan, std::shared_ptr<WeftSerialQueue> dispatch);

/// The frame for the scanners whose `singleDone` and `done` run on `dispatch` and whose callers fill the tree
/// themselves: they differ in `category` only.
void runJunkScan(FeatureInformation& featureInfo, ProgressFunc progress, PercentFunc showPercent,
                 SingleDoneFunc singleDone, std::function<void(CategoryResults)> done,
                 std::shared_ptr<WeftSerialQueue> dispatch,
                 std::function<CategoryPlan(const CategoryInformation&)> category);

/// A last step that runs on `dispatch`, submitted again if the queue refuses it.
std::function<void(std::function<void()>)> onSerialQueue(std::shared_ptr<WeftSerialQueue> dispatch);

}  // namespace sorrel
