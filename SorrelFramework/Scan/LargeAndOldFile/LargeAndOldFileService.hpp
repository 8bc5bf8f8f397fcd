#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <tuple>

#include "SorrelFramework/Platform/Base/Date.hpp"
#include "SorrelFramework/Scan/ScanFrame.hpp"
#include "SorrelFramework/Scan/SuperScanService.hpp"

namespace sorrel {

class PercentService;

/// Finds the large files of the user's home and sorts each of them by type, by age and by size. The feature
/// has one category, "All", with twelve rows in its childrenCateogry, one for each LargeAndFileKind; fewer
/// are a fatal stop. A record is in "All" and in three of the rows at once, so the size of "All" equals the
/// sum over the rows of each of the three groups.
class LargeAndOldFileService : public SuperScanService {
 public:
  /// The raw value is the index of the row in childrenCateogry.
  enum class LargeAndFileKind : Integer {
    // By type.
    Archives = 0,
    Picture = 1,
    Movies = 2,
    Music = 3,
    Other = 4,
    // By the time of the last change: more than a year, a month, a week ago, or later than all of these.
    OneYear = 5,
    OneMonth = 6,
    OneWeek = 7,
    LastWeek = 8,
    // By size.
    Huge = 9,
    Average = 10,
    Small = 11,
  };
  /// The `attachInformation` of a record of this scanner: the three rows that the record is in, by the raw
  /// values of their kinds. They live as long as the category "All" of the record.
  using Rows = std::map<Integer, CategoryInformation*>;
  using DoneFunc = std::function<void(FeatureInformation&, std::int64_t size)>;

  static constexpr std::int64_t HugeSize = 524'288'000;     ///< bytes; from here on Huge
  static constexpr std::int64_t AverageSize = 104'857'600;  ///< bytes; from here on Average

  /// Starts the scan and returns. Fills "All" and its rows and then calls `done` with the feature and all
  /// bytes, once, on the main queue; `showPercent` runs on the main queue up to 1.0, and `progress` with the
  /// path and size of each record before `done`. `singleDone` is never called. No callback is made if the
  /// feature's scan runs already.
  ///
  /// Runs mdfind for the files of more than 50 MiB; the records are then made on `dispatch`. Without that
  /// tool it walks the home instead, and includes files of exactly 50 MiB, but no hidden ones. A stop ends
  /// the tool at once; the lines printed by then become records.
  static void scanLargeAndOldFile(FeatureInformation& featureInfo, ProgressFunc progress,
                                  PercentFunc showPercent, SingleDoneFunc singleDone, DoneFunc done,
                                  std::shared_ptr<WeftSerialQueue> dispatch);
  static void scanProLargeAndOldFileFast(FeatureInformation& featureInfo, ProgressFunc progress,
                                         PercentFunc showPercent, SingleDoneFunc singleDone, DoneFunc done,
                                         std::shared_ptr<WeftSerialQueue> dispatch);
  /// The walk, on the global queue, for a running scan with this bar. Neither hidden items nor the contents
  /// of packages are visited. A stop ends it with the records found so far.
  static void scanProLargeAndOldFileCommon(FeatureInformation& featureInfo, ProgressFunc progress,
                                           PercentFunc showPercent, SingleDoneFunc singleDone, DoneFunc done,
                                           std::shared_ptr<WeftSerialQueue> dispatch,
                                           std::shared_ptr<PercentService> percentService);

  /// Raw LargeAndFileKind of the first word (image, movie, audio, archive) in the file's content type tree:
  /// the first type of the tree that contains one decides. Other if there is none, or no such file.
  static Integer sortTypeFile(const FileInformation& file);

  /// Puts the record into "All" and its three rows, adds its size to theirs, and sets its payload (Rows). A
  /// date before a limit makes it older than that; a date at the limit does not.
  static void addToChildrenCategory(CategoryInformation& allCategory, FileInformation& file, Date yearTime,
                                    Date monthTime, Date weekTime);

  /// After a clean: removes the records that were ticked and deleted from the tree, numbers the others,
  /// clears their ticks and sorts them again, by their age at this time. Returns the bytes removed, the
  /// records removed, and their paths, each followed by ",".
  static std::tuple<std::int64_t, FileRecords, std::string> sortCategory(CategoryInformation& allCategory);
};

}  // namespace sorrel
