#pragma once

#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Scan/ScanTypes.hpp"

namespace sorrel {

// A file may be a member of one group, and the folder that it lies in a member of another. If both are
// ticked, the file goes with the folder: to remove it once more would fail, and its bytes would count twice.

/// Takes the ticks off members of groups that lie below another ticked member; gives these members.
FileRecords untickCovered(FeatureInformation& feature);

/// Takes those of the members that are gone by now out of the tree, which a clean has repaired.
void removeCoveredThatAreGone(FeatureInformation& feature, const FileRecords& covered);

}  // namespace sorrel
