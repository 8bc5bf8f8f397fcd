#pragma once

#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <vector>

namespace sorrel {
class FeatureInformation;
class ModuleInformation;
template <class T>
class Ref;
}  // namespace sorrel

namespace sorrel::cli {

/// How often each callback of a scan ran, and the last value of the bar.
struct CallbackCounts {
  std::int64_t done = 0;
  std::int64_t singleDone = 0;
  std::int64_t progress = 0;
  double lastPercent = 0;
};

/// What a scan left behind.
struct ScanOutcome {
  std::int64_t size = 0;
  std::string_view status;  ///< "start", "end" or "suspend", as the table of running scans reads at the end
  CallbackCounts callbacks;
};

/// The documents of `--json`, one line each. Field names and raw values are those of the records; the README
/// of the command line lists them. Written record by record, so that a tree of a million files needs no
/// second copy.
void writeModulesDocument(std::ostream& out, const std::vector<Ref<ModuleInformation>>& modules);
void writeScanDocument(std::ostream& out, const FeatureInformation& feature, const ScanOutcome& outcome);

}  // namespace sorrel::cli
