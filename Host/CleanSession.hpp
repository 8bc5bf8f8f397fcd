#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Host/Cleaners.hpp"
#include "SorrelFramework/Scan/ScanTypes.hpp"

namespace sorrel::cli {

class CleanProgress;
class StopSwitch;

/// The results that a clean reported.
struct CleanResult {
  std::int64_t size = 0;  ///< bytes freed
  Integer status = 0;     ///< raw DeleteStatus
  std::string desc;
  FileRecords abnormalFiles;
  std::vector<float> progress;
};

/// Gets the records that the clean was given, when all deletions are over and before the tree is repaired:
/// the records carry their results. Runs on a background thread while no other thread uses the tree.
using HandedFunc = std::function<void(const FileRecords& handed)>;

/// Cleans the ticked items in `feature`, with this thread as the main loop, and returns at the end of the
/// clean; `feature` is then the repaired tree. `progress` is on the screen meanwhile. Does nothing and
/// returns nothing if the switch was pulled before. Ctrl-C during the clean ends the process at once with
/// ExitStatus::Stopped: items removed by then stay removed. While the privileged helper works it stops the
/// helper instead, and the clean ends with the helper's results so far.
std::optional<CleanResult> runClean(const Cleaner& cleaner, const Ref<FeatureInformation>& feature,
                                    StopSwitch& stop, CleanProgress& progress, HandedFunc onDeleted);

}  // namespace sorrel::cli
