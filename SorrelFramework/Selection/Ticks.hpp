#pragma once

#include <string>
#include <vector>

#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Scan/ScanTypes.hpp"

namespace sorrel {

class Globs;

/// How the records of a feature hang in its tree, which decides what its ticks select.
enum class TreeShape {
  Categories,  ///< records of all categories, with what lies below them
  Groups,      ///< the first category holds groups of alike files, and only their members go
  Flat,        ///< the records of the first category, and nothing below them
  Rows,        ///< rows below the categories hold the records; a row may hang in several categories
  Details,     ///< every category holds groups of details, and only the details go
};

// The ticks (`state`) on a scanned tree, as the check boxes of an application set them: a row is on if all
// below it is on, off if nothing is, and mixed otherwise. So a category that is on, of which a clean takes
// everything, never holds a record that is off. Each call sets the ticks of the whole tree.

/// Takes off all ticks, those of the catalogue too.
void clearTicks(FeatureInformation& feature);

/// Ticks everything, categories without records too.
void tickAll(FeatureInformation& feature);

/// Ticks each record that a glob fits, with all below it. A record is matched by its path; one without a path
/// by its title, and if it lies in a group by GROUP/TITLE too, and by that with the titles above in front.
void tickMatching(FeatureInformation& feature, Globs& globs);

/// True if `path` is a folder in which something fits a glob, at any depth. A folder that can't be searched
/// as a whole counts too: what must stay may lie in it.
bool holdsMatch(const std::string& path, Globs& globs);

/// Takes the tick off each record that a glob fits, by the same names, and off what lies in a folder that one
/// fits. A ticked folder in which something fits on the disk loses its tick too, as does one that can't be
/// searched: their paths are returned. Keeps the other ticks. A glob counts as used if it fits any record,
/// ticked or not, or something in a ticked folder.
std::vector<std::string> untickMatching(FeatureInformation& feature, Globs& globs);

/// The records that a clean of that shape takes, a parent in place of what lies below it, in the tree's
/// order.
FileRecords tickedRecords(TreeShape shape, FeatureInformation& feature);

/// The leaves at and below these records: what goes from the disk.
FileRecords leavesOf(const FileRecords& records);

}  // namespace sorrel
