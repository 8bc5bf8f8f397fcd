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

/// What a clean called back.
struct CleanResult {
  std::int64_t size = 0;  ///< bytes freed
  Integer status = 0;     ///< raw DeleteStatus
  std::string desc;
  FileRecords abnormalFiles;
  std::vector<float> progress;
};

/// Gets the records that the clean was handed, when all deletions are over and before the tree is repaired:
/// their outcome stands on them. Runs on a background thread while nothing else uses the tree.
using HandedFunc = std::function<void(const FileRecords& handed)>;

/// Cleans what is ticked in `feature`, with this thread as the main loop, and returns at the end of the
/// clean; `feature` is then the repaired tree. `progress` is on the screen meanwhile. Nothing happens, and
/// nothing is answered, if the switch was pulled before. Ctrl-C during the clean ends the process at once
/// with ExitStatus::Stopped: what is gone until then is gone. While the privileged helper is at work it stops
/// the helper instead, and the clean ends with what the helper has done.
std::optional<CleanResult> runClean(const Cleaner& cleaner, const Ref<FeatureInformation>& feature,
                                    StopSwitch& stop, CleanProgress& progress, HandedFunc onDeleted);

}  // namespace sorrel::cli
