#pragma once

#include <cstdint>
#include <iosfwd>
#include <vector>

#include "Host/RowOrder.hpp"

namespace sorrel {
class CategoryInformation;
class FeatureInformation;
class ModuleInformation;
template <class T>
class Ref;
}  // namespace sorrel

namespace sorrel::cli {

/// The catalogue: modules, their features with the words that `sorrel scan` takes, their categories and
/// folders.
void writeModules(std::ostream& out, const std::vector<Ref<ModuleInformation>>& modules);

/// A scanned feature: a size in front of each row, rows below their parents in `order`, and a line with the
/// sum at the end. The rows below "All" keep the catalogue's order. Groups of equal files are written by
/// writeGroups().
void writeScan(std::ostream& out, FeatureInformation& feature, std::int64_t size, RowOrder order);

}  // namespace sorrel::cli
