#pragma once

#include <functional>
#include <memory>

#include "SorrelFramework/Scan/ScanFrame.hpp"
#include "SorrelFramework/Scan/SuperScanService.hpp"

namespace sorrel {

/// Measures the folders that the catalogue names for phones and tablets, mainly the backups of devices: one
/// record for each item directly in a folder, sized as a whole. A backup has the name of its device.
class iTunesScanService : public SuperScanService {
 public:
  /// Starts the scan and returns. Callbacks, and the tree, as in SystemScanService::scanSystemJunk.
  static void scaniTunesJunk(FeatureInformation& featureInfo, ProgressFunc progress, PercentFunc showPercent,
                             SingleDoneFunc singleDone, std::function<void(CategoryResults)> done,
                             std::shared_ptr<WeftSerialQueue> dispatch);
  static void scanProiTunesJunk(FeatureInformation& featureInfo, ProgressFunc progress,
                                PercentFunc showPercent, SingleDoneFunc singleDone,
                                std::function<void(CategoryResults)> done,
                                std::shared_ptr<WeftSerialQueue> dispatch);

  /// Sets the title of a device backup's record to the "Display Name" of its "Info.plist"; any other record,
  /// and a backup without that name, stays as it is. On a macOS volume every item in the folder of backups is
  /// a backup; on the desktop, where users keep backups in any folder, also any folder with the files of one.
  static void updateTitle(FileInformation& record);
};

}  // namespace sorrel
