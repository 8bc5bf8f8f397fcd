#pragma once

#include <cstdint>
#include <iosfwd>

#include "Host/RowOrder.hpp"

namespace sorrel {
class FeatureInformation;
}  // namespace sorrel

namespace sorrel::cli {

/// A scanned feature whose records are groups of alike files: for each member its path and what its removal
/// alone would free, as gainsOf() has it. Below the groups the sums of the rows that list them again. `order`
/// is that of the groups; the members of each keep theirs.
void writeGroups(std::ostream& out, const FeatureInformation& feature, std::int64_t size, RowOrder order);

}  // namespace sorrel::cli
