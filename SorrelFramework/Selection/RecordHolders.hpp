#pragma once

#include <vector>

namespace sorrel {

class CategoryInformation;
class FeatureInformation;

/// The categories and rows whose `childrens` are the records of a feature, in the order of the tree and each
/// once: a category, or, if it has no records of its own, the rows below it. Rows of a category with records
/// list these again and do not count, nor does a row that another category holds too.
std::vector<CategoryInformation*> recordHolders(FeatureInformation& feature);
std::vector<const CategoryInformation*> recordHolders(const FeatureInformation& feature);

}  // namespace sorrel
