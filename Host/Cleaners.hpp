#pragma once

#include <ctime>
#include <memory>

#include "SorrelFramework/Clean/CleanServiceProtocol.hpp"
#include "SorrelFramework/Clean/CleanServiceType.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/Ref.hpp"
#include "SorrelFramework/Selection/Ticks.hpp"

namespace sorrel::cli {

/// How this program cleans a feature after its scan.
struct Cleaner {
  using Listener = std::shared_ptr<CleanServiceProtocol>;

  /// Starts the clean of what is ticked and returns; `listener` gets the results. Null: it cannot be cleaned.
  void (*start)(const Cleaner& cleaner, const Ref<FeatureInformation>& feature,
                const Listener& listener) = nullptr;
  TreeShape shape = TreeShape::Categories;
  CleanServiceType type = CleanServiceType::Common;
  bool isTrash = false;  ///< `--all` empties it, including records of other programs
};

// The entries of CleanService.
void cleanCategories(const Cleaner& cleaner, const Ref<FeatureInformation>& feature,
                     const Cleaner::Listener& listener);
void cleanGroups(const Cleaner& cleaner, const Ref<FeatureInformation>& feature,
                 const Cleaner::Listener& listener);
void cleanFlat(const Cleaner& cleaner, const Ref<FeatureInformation>& feature,
               const Cleaner::Listener& listener);

/// Refuses a selection that leaves no member of a group of alike files, as wrong use that names the groups;
/// for features with groups.
void refuseWholeGroups(const Cleaner& cleaner, FeatureInformation& feature);

/// Refuses a selection that touches a group with members that changed after `began`, as a failure that names
/// them: they may no longer be copies. For features with groups.
void refuseChangedGroups(const Cleaner& cleaner, FeatureInformation& feature, const timespec& began);

}  // namespace sorrel::cli
