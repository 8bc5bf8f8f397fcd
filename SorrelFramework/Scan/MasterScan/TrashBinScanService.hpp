#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "SorrelFramework/Scan/ScanFrame.hpp"
#include "SorrelFramework/Scan/SuperScanService.hpp"

namespace sorrel {

/// Lists the items in the user's trash, a category of the catalogue, and in the trash folders of other
/// volumes, categories of kind OtherTrashBin that the application makes from getUSBInfo(). One record for
/// each item directly in a trash folder, sized as a whole.
class TrashBinScanService : public SuperScanService {
 public:
  /// Name of the picture for the rows of this scanner.
  static constexpr std::string_view defaultTrashBinImage = "SystemTrash";

  /// Starts the scan and returns. Fills `childrens` and `size` of the feature's categories and then calls
  /// `done` with the feature and all bytes, once, on the main queue. `progress` and `showPercent` as in the
  /// other scanners; `singleDone` is never called. `otherTrashBinDesc` is the application's text for the rows
  /// of other volumes; the scan does not use it.
  static void scanTrashBin(FeatureInformation& featureInfo, ProgressFunc progress, PercentFunc showPercent,
                           SingleDoneFunc singleDone,
                           std::function<void(FeatureInformation&, std::int64_t size)> done,
                           const std::string& otherTrashBinDesc, std::shared_ptr<WeftSerialQueue> dispatch);
  static void scanProTrashBin(FeatureInformation& featureInfo, ProgressFunc progress, PercentFunc showPercent,
                              SingleDoneFunc singleDone,
                              std::function<void(FeatureInformation&, std::int64_t size)> done,
                              const std::string& otherTrashBinDesc,
                              std::shared_ptr<WeftSerialQueue> dispatch);

  /// The user's trash folder on each mounted volume except the system's own, with the volume's name. A volume
  /// without a trash folder is not listed.
  static std::vector<std::pair<URL, std::string>> getUSBInfo();

  /// True for the items directly in a trash folder.
  static bool filter(const URL& url, const ResourceValues& values, EnumerationPosition* position);
};

}  // namespace sorrel
