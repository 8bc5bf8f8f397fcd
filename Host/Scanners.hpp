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

/// The user's settings for a scan; for the features that take them.
struct ScanScope {
  std::vector<URL> places;         ///< where to look
  std::optional<Integer> limit{};  ///< KiB; only what is larger takes part
};

/// The arguments of a scanner. The callbacks run on the scanner's threads.
struct ScanJob {
  Ref<FeatureInformation> feature;
  ScanScope scope;
  std::function<void(const std::string&, std::int64_t)> progress;
  std::function<void(float)> showPercent;
  std::function<void(Integer, std::int64_t)> singleDone;
  /// Gets the remaining work on the tree, and runs it on the main queue; that work returns the bytes of the
  /// feature.
  std::function<void(std::function<std::int64_t()>)> done;
  std::shared_ptr<WeftSerialQueue> dispatch;
};

/// What the feature of the catalogue must have, or its scan would never end.
enum class ScanNeeds {
  Nothing,
  Categories,
  FoldersOfCategories,  ///< at least one for each category
};

/// How this program scans a feature.
struct Scanner {
  void (*start)(const ScanJob& job) = nullptr;  ///< null: it cannot
  ScanNeeds needs = ScanNeeds::Nothing;
  /// What the application adds to the catalogue; null for nothing.
  void (*addCategories)(FeatureInformation& feature) = nullptr;
  /// For a feature that takes ScanScope::places: those of a user who named none. Null for the others.
  std::vector<URL> (*placesInHome)(const URL& home) = nullptr;
  bool takesLimit = false;  ///< ScanScope::limit
};

// The scanners of the features. Each fills the tree as an application does.
void startSystemJunk(const ScanJob& job);
void startTrash(const ScanJob& job);
void startLargeAndOld(const ScanJob& job);
void startMail(const ScanJob& job);
void startDeviceBackups(const ScanJob& job);
void startPhotos(const ScanJob& job);
void startDuplicates(const ScanJob& job);

/// Adds a category for the trash of each other volume.
void addOtherTrashes(FeatureInformation& feature);
std::vector<URL> duplicatePlacesInHome(const URL& home);

}  // namespace sorrel::cli
