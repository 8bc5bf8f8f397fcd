#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Scan/ScanTypes.hpp"

namespace sorrel {

/// The groups of alike files, ticked and not yet cleaned, of which the clean would leave no member as it is;
/// those of the first category. A member stays if it exists and no ticked member is the same entry of the
/// disk, a folder above it, or an item in it, whichever mounts and links lead there. Another hard link to a
/// ticked file is a member that stays.
FileRecords groupsWithoutACopyLeft(FeatureInformation& feature);

/// The present, for changesInTickedGroups(). Every change after the call has a later time, no change before
/// it has: the call may last until the kernel's clock for files has taken a step.
timespec beginOfChanges();

/// The paths of what was changed, made or removed after `since`, the moment before the scan, in the members
/// of groups that lose one: these members may no longer be alike. For a folder that can't be read its own
/// path. A ticked member that is gone is no change.
std::vector<std::string> changesInTickedGroups(FeatureInformation& feature, const timespec& since);

}  // namespace sorrel
