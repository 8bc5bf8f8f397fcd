#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "SorrelFramework/Scan/ScanFrame.hpp"
#include "SorrelFramework/Scan/SuperScanService.hpp"

namespace sorrel {

/// Measures the pictures that a photo library has derived from its originals: on a macOS volume in the user's
/// Photos library, on the desktop also in the folders that the catalogue names for its photo managers. On a
/// volume each category lists the library; on the desktop the first one does, and no folder is listed twice.
class PhotoScanService : public SuperScanService {
 public:
  // Folders of derived pictures in a library.
  static constexpr std::string_view osx12PhotoPath1 = "resources/media/face";
  static constexpr std::string_view osx12PhotoPath2 = "resources/media/master";
  static constexpr std::string_view osx12PhotoPath3 = "resources/Version";
  static constexpr std::string_view osx11PhotoPath1 = "resources/media/moduleresources";

  /// Starts the scan and returns. Callbacks, and the tree, as in SystemScanService::scanSystemJunk.
  static void scaniPhotoJunk(FeatureInformation& featureInfo, ProgressFunc progress, PercentFunc showPercent,
                             SingleDoneFunc singleDone, std::function<void(CategoryResults)> done,
                             std::shared_ptr<WeftSerialQueue> dispatch);
  static void scanProiPhotoJunk(FeatureInformation& featureInfo, ProgressFunc progress,
                                PercentFunc showPercent, SingleDoneFunc singleDone,
                                std::function<void(CategoryResults)> done,
                                std::shared_ptr<WeftSerialQueue> dispatch);

  /// The library directly in the user's folder of pictures; the last one by name if there are several.
  static std::optional<URL> getPhotoslibraryPath();

  /// Keeps items with ".png", ".jpg" or ".jpeg" in their names, in lower case.
  static bool pictureFilter(const URL& url, const ResourceValues& values, EnumerationPosition* position);
};

}  // namespace sorrel
