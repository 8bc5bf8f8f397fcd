#pragma once

#include "Host/JsonDocument.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/Ref.hpp"

namespace sorrel::cli {

struct ScanScope;
struct Scanner;
class StopSwitch;

struct SessionResult {
  ScanOutcome outcome;
  bool stopped = false;  ///< the switch was pulled before the scan ended
};

/// Runs `scanner` over `feature` with this thread as the main loop, and returns when everything
/// has arrived: `done` has run, the bar has reported its end, and every block of progress has been delivered.
/// The switch stops the scan, which then ends with what it has found so far. The tree is filled as an
/// application does it.
SessionResult runScan(const Scanner& scanner, const Ref<FeatureInformation>& feature, ScanScope scope,
                      StopSwitch& stop, bool showProgress);

}  // namespace sorrel::cli
