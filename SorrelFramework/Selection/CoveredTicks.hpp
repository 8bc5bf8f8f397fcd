#pragma once

#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Scan/ScanTypes.hpp"

namespace sorrel {

// A file may be a member of one group, and its parent folder a member of another. If both are ticked, the
// file is removed with the folder: a second removal would fail, and its bytes would count twice.

/// Unticks members of groups that lie below another ticked member; returns these members.
FileRecords untickCovered(FeatureInformation& feature);

/// Removes those of the members that are gone by now from the tree, which a clean has repaired.
void removeCoveredThatAreGone(FeatureInformation& feature, const FileRecords& covered);

}  // namespace sorrel
