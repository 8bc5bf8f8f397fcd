#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Platform/Queues/WeftSerialQueue.hpp"
#include "SorrelFramework/Scan/ScanTypes.hpp"
#include "SorrelFramework/Units/ScanStatus.hpp"

namespace sorrel {

class PercentService;

/// Holds the progress service of the running scan. Safe on any thread.
class PercentServiceSlot {
 public:
  [[nodiscard]] std::shared_ptr<PercentService> get() const;
  /// Stores another service, or none, and returns the previous one.
  std::shared_ptr<PercentService> exchange(std::shared_ptr<PercentService> service);
  /// Empties the slot if it holds this service.
  void remove(const std::shared_ptr<PercentService>& service);

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<PercentService> service_;
};

/// Base of every scanner, without instances: the table of running scans, the stop, the building and sizing of
/// records, and the one walking routine. Operations without a callback block and run on the caller's thread.
class SuperScanService {
 public:
  using ScanState = sorrel::ScanState;

  SuperScanService() = delete;

  /// One entry for each feature that was scanned or stopped, by its finderID.
  static ScanStatusTable& scanStatus;
  static PercentServiceSlot percentService;

  static const Image& defaultImage();  ///< the picture "App_Cache", or an empty image
  static constexpr std::string_view defaultTitle = kDefaultRecordTitle;
  static constexpr std::int64_t defaultSize = kDefaultRecordSize;
  static constexpr std::int64_t defaultSearchKeySize = 0;
  static URL defaultURL() { return {}; }
  /// The user's documents folder.
  static URL supportFolder();

  /// Requests the running walks of the feature to stop at their next item and ends the progress bar. The
  /// results found so far are delivered through the normal completion of the scan.
  static void stopScan(FeatureInformation& featureInfo);

  /// The path in the text of a URL: without any "file://", percent-decoded; "" if it can't be decoded as
  /// UTF-8.
  static std::string handleURLToString(const URL& url);
  static std::string handleStringToString(std::string_view url);

  /// Selects nothing: always empty.
  static std::vector<Ref<CategoryInformation>> largeAndOldFileFilterAllFile(
      const std::vector<Ref<CategoryInformation>>& category);

  /// Logical bytes of a file (raw FilesKind `File`), or of all files below a folder for any other kind,
  /// including hidden ones and the contents of packages. Unreadable items count as 0.
  static std::int64_t calculateSize(const URL& url, Integer kind);
  /// The same; stops with the partial sum as soon as the entry of `finderID` reads `suspend`.
  static std::int64_t appCalculateSize(const URL& url, Integer kind, Integer finderID);
  /// Queries the metadata store (mdls) for the size of a bundle; 0 if it does not know the bundle.
  static std::int64_t getPackageSizeFromTerminal(const URL& url);

  /// A record for an item that was found by other means than a walk: numbered as the next child of the
  /// category, but not attached to it. On a volume it is looked up as the volume's own system does, and the
  /// record has the path by which this machine finds it. Nothing if the item can't be reached.
  /// `propertiesForKey` must hold NSURLIsPackageKey and NSURLIsDirectoryKey, or every item counts as a file.
  /// An `inputSize` spares the sizing.
  static Ref<FileInformation> getFileInformationFromUrl(const URL& url, ResourceKeys propertiesForKey,
                                                        CategoryInformation& categoryInfo,
                                                        std::optional<std::int64_t> inputSize = std::nullopt);
  /// The same without a category: both numbers are 0.
  static Ref<FileInformation> getFileInformationFromUrl(const URL& url, ResourceKeys propertiesForKey,
                                                        std::optional<std::int64_t> inputSize = std::nullopt);

  /// The whole matches of a regular expression; see regexMatches().
  static std::vector<std::string> regexGetSub(std::string_view pattern, std::string_view str);

  /// Walks all roots at once on the global queue. `progress` runs on the main queue once for each kept item,
  /// `showPercent` (1.0, once) and `done` on `dispatchQueue`. An empty `urls` never calls `done`.
  static void getListFromUrls(FeatureInformation& featureInfo, const std::vector<URL>& urls, Integer state,
                              ResourceKeys propertiesForKey, EnumerationOptions enumOptions, Integer scanID,
                              ProgressFunc progress, PercentFunc showPercent, FilterFunc filterFunc,
                              RootsDoneFunc done, std::shared_ptr<WeftSerialQueue> dispatchQueue,
                              CategoryInformation& categoryInfo, bool isContainZeroItem = false);

  /// Walks one root on the calling thread, with the help of free threads of the global queue; `done` runs on
  /// the calling thread. A root that is a plain file is recorded without calling the filter; a missing one
  /// gives zeros and no records. Records are numbered from 0, a parent before its children, children by name.
  static void getListFromUrl(FeatureInformation& featureInfo, const URL& url, Integer state,
                             ResourceKeys propertiesForKey, EnumerationOptions enumOptions, Integer scanID,
                             EnumerationErrorHandler errorHandle, FilterFunc filterFunc,
                             ProgressFunc progress, const RootDoneFunc& done,
                             CategoryInformation& categoryInfo, bool isContainZeroItem = false);
};

}  // namespace sorrel
