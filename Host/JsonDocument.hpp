#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace sorrel {
class FeatureInformation;
class FileInformation;
class ModuleInformation;
template <class T>
class Ref;
}  // namespace sorrel

namespace sorrel::cli {

/// How often each callback of a scan ran, and the last value of the progress bar.
struct CallbackCounts {
  std::int64_t done = 0;
  std::int64_t singleDone = 0;
  std::int64_t progress = 0;
  double lastPercent = 0;
};

/// The results of a scan.
struct ScanOutcome {
  std::int64_t size = 0;
  std::string_view status;  ///< "start", "end" or "suspend", from the table of running scans at the end
  CallbackCounts callbacks;
};

/// The results that a clean reported.
struct CleanOutcome {
  std::int64_t size = 0;
  std::int64_t status = 0;
  std::string desc;
  std::vector<std::string> abnormalFiles;  ///< paths, or titles of records without a path
  std::vector<float> progress;
  std::string records;  ///< as writeRecords() wrote them before the repair of the tree
};

/// The documents of `--json`, one line each. Field names and raw values are those of the records;
/// docs/command-line.md lists them. Written record by record, so that a tree of a million files needs no
/// second copy.
void writeModulesDocument(std::ostream& out, const std::vector<Ref<ModuleInformation>>& modules);
void writeScanDocument(std::ostream& out, const FeatureInformation& feature, const ScanOutcome& outcome);
void writeCleanDocument(std::ostream& out, const FeatureInformation& feature, const ScanOutcome& scan,
                        const CleanOutcome& clean);

/// The list of these records, a part of a document.
void writeRecords(std::ostream& out, const std::vector<Ref<FileInformation>>& records);

}  // namespace sorrel::cli
