#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/ModuleInfo.hpp"
#include "SorrelFramework/Scan/ScanFrame.hpp"
#include "Tests/Support/RecordingQueue.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::test {

/// A macOS volume in a temporary folder, installed as the host, with the home of alice.
class ScanVolume : public TemporaryFolder {
 public:
  ScanVolume();

  /// File URL of a folder (`name` ends in "/") or another item of the volume.
  [[nodiscard]] URL url(std::string_view name) const;
};

/// A category of a feature under test: its kind and its roots.
struct CategorySketch {
  CategoryInfomationKind kind = CategoryInfomationKind::Common;
  std::vector<URL> urls;
  Integer state = NSControlStateValueOff;
};

/// A feature with a module above it; its categories are numbered from 1.
Ref<FeatureInformation> makeFeature(Integer finderID, const std::vector<CategorySketch>& categories);

/// The feature of the large and old files, number 3: the category "All" with this many rows below it.
Ref<FeatureInformation> makeLargeAndOldFeature(Integer rows = 12);

/// The callbacks of a scan, and the queues they ran on. Its callbacks may be passed to any scanner.
class ScanRecord {
 public:
  struct Place {
    bool onMain;
    bool onSerial;
  };

  ScanRecord();

  [[nodiscard]] ProgressFunc progress();
  [[nodiscard]] PercentFunc percent();
  [[nodiscard]] SingleDoneFunc singleDone();
  [[nodiscard]] std::function<void(CategoryResults)> done();
  [[nodiscard]] std::function<void(FeatureInformation&, std::int64_t)> treeDone();

  /// Runs the main loop until `done` was called, its progress was delivered and the bar has ended.
  [[nodiscard]] bool waitUntilDone();
  [[nodiscard]] Place here() const;

  std::shared_ptr<RecordingQueue> queue;
  std::function<void()> onDone;  ///< called where done runs, before it is counted
  // Written on the queue that the contract names, read by the test after waitUntilDone().
  std::mutex mutex;
  std::vector<std::pair<std::string, std::int64_t>> progressCalls;
  std::vector<Place> progressPlaces;
  std::vector<float> percents;
  std::vector<Place> percentPlaces;
  std::vector<std::pair<Integer, std::int64_t>> singles;
  std::vector<Place> singlePlaces;
  CategoryResults results;
  std::int64_t treeSize = -1;
  std::vector<Place> donePlaces;
  std::atomic<int> doneCount{0};
};

/// Paths below `root` of the records, in order, folders with a trailing slash.
std::vector<std::string> namesOf(const FileRecords& records, const URL& root);
/// The record of that name among `records`; a failed expectation and null if there is none.
Ref<FileInformation> recordNamed(const FileRecords& records, const URL& root, std::string_view name);

}  // namespace sorrel::test
