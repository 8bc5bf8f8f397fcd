#pragma once

#include <cstdint>
#include <iosfwd>

namespace sorrel {
class FeatureInformation;
}  // namespace sorrel

namespace sorrel::cli {

/// A scanned feature whose records are groups of alike files: for each member its path and what its removal
/// alone would free, as gainsOf() has it. Below the groups the sums of the rows that list them again.
void writeGroups(std::ostream& out, const FeatureInformation& feature, std::int64_t size);

}  // namespace sorrel::cli
