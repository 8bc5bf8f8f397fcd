#pragma once

#include <cstdint>
#include <iosfwd>

#include "Host/RowOrder.hpp"

namespace sorrel {
class FeatureInformation;
}  // namespace sorrel

namespace sorrel::cli {

/// A scanned feature whose records are groups of equal files: for each member its path and the bytes that its
/// removal alone would free, as computed by gainsOf(). After the groups come the sums of the rows that list
/// them again. `order` applies to the groups; the members of each keep their order.
void writeGroups(std::ostream& out, const FeatureInformation& feature, std::int64_t size, RowOrder order);

}  // namespace sorrel::cli
