#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Scan/ScanTypes.hpp"

namespace sorrel {

/// Checked before ticked groups of equal files are cleaned: the groups of the first category that would lose
/// every intact member. A member stays if it exists and none of the ticked ones is the same directory entry,
/// an ancestor of it, or inside it, through any mount or link. Another hard link to a ticked file is a member
/// that stays.
FileRecords groupsWithoutACopyLeft(FeatureInformation& feature);

/// The current time, for changesInTickedGroups(). Every change made after the call has a later timestamp, and
/// no change made before it has: the call may wait until the kernel's clock for files has advanced.
timespec beginOfChanges();

/// The paths of the changed, new or removed items in members of groups that lose one: changes after `since`,
/// which should be the time before the scan, so these members may no longer be equal. For an unreadable
/// folder its own path. A ticked member that is gone is not included.
std::vector<std::string> changesInTickedGroups(FeatureInformation& feature, const timespec& since);

}  // namespace sorrel
