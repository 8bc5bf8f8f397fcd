#pragma once

#include <ctime>
#include <memory>

#include "SorrelFramework/Clean/CleanServiceProtocol.hpp"
#include "SorrelFramework/Clean/CleanServiceType.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/Ref.hpp"
#include "SorrelFramework/Selection/Ticks.hpp"

namespace sorrel::cli {

/// A feature that this program can clean once its scan is through.
struct CleanFeature {
  Integer finderID;
  TreeShape shape;
  CleanServiceType type;
  bool isTrash = false;  ///< `--all` empties it, records of other programs included
};

/// The row of a feature; null if this version cannot clean it.
const CleanFeature* cleanFeature(Integer finderID);

/// Whether its first category holds groups of alike files.
bool holdsGroups(Integer finderID);

/// Of alike files one must stay: a selection that leaves no member of a group whole is wrong use, with the
/// groups named, for a feature that has groups.
void refuseWholeGroups(const CleanFeature& row, FeatureInformation& feature);

/// What changed since the scan began may be no copy any more: a selection that touches such a group fails,
/// with the changes named, for a feature that has groups.
void refuseChangedGroups(const CleanFeature& row, FeatureInformation& feature, const timespec& began);

/// Starts the clean of what is ticked in `feature`. Returns at once; `listener` hears the rest.
void startClean(const CleanFeature& row, const Ref<FeatureInformation>& feature,
                const std::shared_ptr<CleanServiceProtocol>& listener);

}  // namespace sorrel::cli
