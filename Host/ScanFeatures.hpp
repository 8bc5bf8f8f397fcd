#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "SorrelFramework/Model/Enumerations.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/Ref.hpp"
#include "SorrelFramework/Platform/Queues/WeftSerialQueue.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel::cli {

/// What the user asks of a scan; for the features that take it.
struct ScanScope {
  std::vector<URL> places;         ///< where to look
  std::optional<Integer> limit{};  ///< KiB; only what is larger takes part
};

/// What a scanner is started with. The callbacks run where the scanner runs them.
struct ScanJob {
  Ref<FeatureInformation> feature;
  ScanScope scope;
  std::function<void(const std::string&, std::int64_t)> progress;
  std::function<void(float)> showPercent;
  std::function<void(Integer, std::int64_t)> singleDone;
  /// Takes what is still to be done to the tree, on the main queue; it answers with the bytes of the feature.
  std::function<void(std::function<std::int64_t()>)> done;
  std::shared_ptr<WeftSerialQueue> dispatch;
};

/// A feature that this program can scan.
struct ScanFeature {
  Integer finderID;
  bool walksCategories;  ///< each category needs folders, or its scan never ends
  void (*addCategories)(
      FeatureInformation& feature);  ///< what the application adds to the catalogue, or null
  void (*start)(const ScanJob& job);
  /// For a feature that takes ScanScope::places: those of a user who named none. Else null.
  std::vector<URL> (*placesInHome)(const URL& home) = nullptr;
  bool takesLimit = false;  ///< ScanScope::limit
};

/// The row of a feature; null if this version cannot scan it.
const ScanFeature* scanFeature(Integer finderID);

/// Brings the feature into the form that its scanner starts from. A feature whose scan could never end is
/// refused with ExitStatus::FatalStop.
void prepareScan(const ScanFeature& row, FeatureInformation& feature);

}  // namespace sorrel::cli
