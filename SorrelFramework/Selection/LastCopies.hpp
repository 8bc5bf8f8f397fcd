#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Scan/ScanTypes.hpp"

namespace sorrel::cli {

/// Groups of alike files, ticked, before they are cleaned: the groups of the first category of which nothing
/// would be left as it is. A member stays if it is there and none of the ticked ones is the same entry of the
/// disk, above it, or in it, whichever mounts and links lead there. Another hard link to a ticked file is a
/// member that stays.
FileRecords groupsWithoutACopyLeft(FeatureInformation& feature);

/// The present. Every change that is made behind the call bears a later time, and none that was made before
/// it does: it may last until the kernel's clock for files has taken a step.
timespec beginOfChanges();

/// What was changed, made or removed in members of groups that lose one: it came behind `since`, which is to
/// be the moment before the scan, and so nobody knows whether the members are still alike. Paths; of a folder
/// that can't be read its own. A ticked member that is gone is none of them.
std::vector<std::string> changesInTickedGroups(FeatureInformation& feature, const timespec& since);

}  // namespace sorrel::cli
