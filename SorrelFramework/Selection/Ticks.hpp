#pragma once

#include <string>
#include <vector>

#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Scan/ScanTypes.hpp"

namespace sorrel {

class Globs;

/// The shape of a feature's tree, which determines what its ticks select.
enum class TreeShape {
  Categories,  ///< records of all categories, with everything below them
  Groups,      ///< the first category holds groups of equal files, and only their members are removed
  Flat,        ///< the records of the first category, and nothing below them
  Rows,        ///< rows below the categories hold the records; a row may hang in several categories
  Details,     ///< every category holds groups of details, and only the details go
};

// The ticks (`state`) on a scanned tree, as the check boxes of an application set them: a row is on if
// everything below it is on, off if nothing is, and mixed otherwise. So a category that is on, whose records
// a clean takes all, never contains a record that is off. Each call sets the ticks of the whole tree.

/// Clears all ticks, including those of the catalogue.
void clearTicks(FeatureInformation& feature);

/// Ticks everything, including categories without records.
void tickAll(FeatureInformation& feature);

/// Ticks each record that matches a glob, with everything below it. A record is matched by its path; one
/// without a path by its title, and if it lies in a group also by GROUP/TITLE, and by that with the titles of
/// its ancestors in front.
void tickMatching(FeatureInformation& feature, Globs& globs);

/// True if `path` is a folder in which an item matches a glob, at any depth. A folder that can't be searched
/// completely counts too: an item that must stay may lie in it.
bool holdsMatch(const std::string& path, Globs& globs);

/// Unticks each record that matches a glob, by the same names, and everything in a folder that matches one. A
/// ticked folder that contains a matching item on the disk loses its tick too, as does one that can't be
/// searched: their paths are returned. Keeps the other ticks. A glob counts as used if it matches any record,
/// ticked or not, or an item in a ticked folder.
std::vector<std::string> untickMatching(FeatureInformation& feature, Globs& globs);

/// The records that a clean of that shape takes, a parent instead of the records below it, in the tree's
/// order.
FileRecords tickedRecords(TreeShape shape, FeatureInformation& feature);

/// The leaves at and below these records: the items removed from the disk.
FileRecords leavesOf(const FileRecords& records);

}  // namespace sorrel
