#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "SorrelFramework/Scan/SuperScanService.hpp"
#include "SorrelFramework/Scan/TreeWalk.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/ScanKit.hpp"

namespace sorrel::test {

using Names = std::vector<std::string>;

inline constexpr Integer kFeature = 3;
inline constexpr Integer kScanID = 33;

class Walk : public testing::Test {
 protected:
  Walk() { SuperScanService::scanStatus.resetForTesting(); }

  /// Walks the folder "root/" of the volume on this thread.
  void run(EnumerationOptions options = 0, FilterFunc filter = {}, bool zeroItems = false) {
    runAt(volume.url("root/"), options, std::move(filter), zeroItems);
  }
  void runAt(const URL& url, EnumerationOptions options = 0, FilterFunc filter = {}, bool zeroItems = false) {
    SuperScanService::getListFromUrl(
        *feature, url, NSControlStateValueOn, keys, options, kScanID, errorHandler, std::move(filter),
        [this](const std::string& path, std::int64_t size) { progress.emplace_back(path, size); },
        [this](ScanFilesInformation found, FileRecords foundRecords) {
          totals = std::move(found);
          records = std::move(foundRecords);
          ++doneCount;
        },
        feature->categoryInfo[0], zeroItems);
    drainMainQueue();
  }
  [[nodiscard]] Names names() const { return namesOf(records, volume.url("root/")); }
  [[nodiscard]] Ref<FileInformation> record(std::string_view name) const {
    return recordNamed(records, volume.url("root/"), name);
  }
  [[nodiscard]] std::int64_t sizeNow(std::string_view name) const {
    return SuperScanService::calculateSize(volume.url("root/" + std::string(name)),
                                           rawValue(FilesKind::Folder));
  }

  ScanVolume volume;
  Ref<FeatureInformation> feature = makeFeature(kFeature, {{}});
  ResourceKeys keys = kRecordKeys;
  EnumerationErrorHandler errorHandler;
  ScanFilesInformation totals;
  FileRecords records;
  std::vector<std::pair<std::string, std::int64_t>> progress;
  int doneCount = 0;
};

}  // namespace sorrel::test
