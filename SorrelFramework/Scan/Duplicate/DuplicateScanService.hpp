#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_set>
#include <vector>

#include "SorrelFramework/Platform/Base/WeftQOS.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateInfo.hpp"
#include "SorrelFramework/Scan/ScanFrame.hpp"
#include "SorrelFramework/Scan/SuperScanService.hpp"

namespace sorrel {

/// Finds files and whole folders with the same content. Files are twins if they have the same size, above the
/// limit, and the same MD5 of their whole content; folders are twins if computed size, number of files and
/// the concatenated MD5s of all their files are equal, and their links have the same targets. Names, dates
/// and locations do not matter, hidden items are ignored. An item reached through two mounts is one member.
///
/// Four stages: a walk that reads no content; a selection of folders, the largest first; the hashes of the
/// remaining folders, then of the files that lie in none of them; the tree of groups in the feature's first
/// category.
class DuplicateScanService : public SuperScanService {
 public:
  using DuplicateKind = DuplicateGroupKind;
  using DoneFunc = std::function<void(FeatureInformation&, std::int64_t size)>;
  using DuplicateInfo = sorrel::DuplicateInfo;

  /// KiB; only larger files take part. Set it while no scan runs.
  static Integer limitSize;
  /// The same in bytes; a fatal stop if it does not fit.
  [[nodiscard]] static std::int64_t limitInBytes();
  /// False: the files of every folder that was hashed are no candidates for groups of files, whether or not
  /// the folder has a twin. True: only the files of folders with a twin are excluded, and even these are
  /// members of the group of an equal file that lies in no such folder. So of every pair of equal files above
  /// the limit both are in one group, or both lie in folders that have a twin. Set it while no scan runs.
  static bool findsEveryEqualPair;
  /// False: folders without a file that could be hashed are twins if their computed sizes are equal. True:
  /// such folders have no twin. Set it while no scan runs.
  static bool ignoresFoldersWithoutHashes;
  /// Titles of the child categories by DuplicateKind, for scans and for the repair after a clean. The
  /// application fills in all seven before the first scan: a kind without a title is a fatal stop.
  static std::map<Integer, std::string> childrenCateogryDict;

  /// Starts the scan and returns. A path with fewer than four components ("/Users/alice" has three) stands
  /// for its direct children, except links; if two paths lead to the same item, one through a link, one is
  /// walked. `done` gets the feature and the bytes of all members of all groups, once, on a serial queue of
  /// the scan's own; for a stopped scan it gets 0, on the thread that noticed the stop. Without paths, `done`
  /// runs before the call returns. While a scan of this feature runs, a second call does nothing; after a
  /// stop, the new scan ends the rest of the old one. `progress` and `singleDone` are never called;
  /// `showPercent` as in the other scanners.
  static void scanDuplicate(FeatureInformation& featureInfo, const std::vector<URL>& scanPaths,
                            ProgressFunc progress, PercentFunc showPercent, SingleDoneFunc singleDone,
                            DoneFunc done, std::shared_ptr<WeftSerialQueue> dispatch,
                            WeftQOS qosClass = WeftQOS::Background);
  static void scanProDuplicate(FeatureInformation& featureInfo, const std::vector<URL>& scanPaths,
                               ProgressFunc progress, PercentFunc showPercent, SingleDoneFunc singleDone,
                               DoneFunc done, std::shared_ptr<WeftSerialQueue> dispatch,
                               WeftQOS qosClass = WeftQOS::Background);

  /// Paths to scan when the user chose none: the direct, visible children of the home, except links,
  /// packages, the folder Library and mounts that are not local volumes. The path of the home itself would
  /// stand for its packages and its Library too. An entry with fewer than four components is replaced by its
  /// own entries, except packages.
  static std::vector<URL> placesInHome(const URL& home);

  /// Ends a stopped scan: nothing is built, `done` gets 0.
  static void stopDuplicate(FeatureInformation& featureInfo, const DoneFunc& done);

  /// The third stage, on `dispatch`: hashes the candidates, then calls organizeDataForDuplicate.
  static void analysisDataForDuplicate(DuplicatesBySize preSizeAndFilePath,
                                       DuplicatesBySize sizeAndFolderPath, FeatureInformation& featureInfo,
                                       ProgressFunc progress, PercentFunc showPercent,
                                       SingleDoneFunc singleDone, DoneFunc done,
                                       std::shared_ptr<WeftSerialQueue> dispatch,
                                       std::shared_ptr<PercentService> percentService, WeftQOS qosClass);

  /// The concatenated hashes of all files below the folder, except hidden ones, packages included, in the
  /// order of the walk; the URLs of these files; their bytes; and the URLs of those that have a size. Blocks.
  static std::tuple<std::string, std::vector<URL>, std::int64_t, std::unordered_set<URL>>
  getMD5FromFolderPath(const URL& folderURL);

  /// The fourth stage: makes a group of each hash with at least two members, the largest group first, and
  /// calls `done`.
  static void organizeDataForDuplicate(DuplicatesByHash MD5AndFileInfo, DuplicatesByHash MD5AndFolderInfo,
                                       FeatureInformation& featureInfo, ProgressFunc progress,
                                       PercentFunc showPercent, SingleDoneFunc singleDone, DoneFunc done,
                                       std::shared_ptr<WeftSerialQueue> dispatch,
                                       std::shared_ptr<PercentService> percentService);

  /// The kinds of the group that the file belongs to, determined by its content type tree.
  static std::vector<Integer> sortFile(const FileInformation& file);

  /// The repair after a clean: removes the deleted members from `allCategory`, and groups with fewer than
  /// two; numbers the rest and recreates the child categories. Returns the bytes deleted, the members that
  /// could not be deleted, and their texts, one line each.
  static std::tuple<std::int64_t, FileRecords, std::string> sortCategory(CategoryInformation& allCategory);

  /// A walk through getListFromUrls that no scan uses: hashes nothing, and reports each path through
  /// `singleDone` (its index, the bytes found) on `dispatch`. `done` is not called.
  static void scanTestAProDuplicate(FeatureInformation& featureInfo, const std::vector<URL>& scanPaths,
                                    ProgressFunc progress, PercentFunc showPercent, SingleDoneFunc singleDone,
                                    DoneFunc done, std::shared_ptr<WeftSerialQueue> dispatch);
  /// Keeps files above the limit; does not enter packages and frameworks.
  static bool filter(const URL& url, const ResourceValues& values, EnumerationPosition* position);

  static constexpr std::string_view kStopLog = "DuplicateScanService stopDuplicate Supend";
};

}  // namespace sorrel
