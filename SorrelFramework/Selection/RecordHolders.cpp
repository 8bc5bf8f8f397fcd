#include "SorrelFramework/Selection/RecordHolders.hpp"

#include <unordered_set>
#include <utility>

#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"

namespace sorrel {
namespace {

template <class Category>
class Holders {
 public:
  template <class Categories>
  void add(Categories& categories) {
    for (Category& category : categories) {
      if (!seen_.insert(&category).second) continue;
      const bool hasRows = category.childrenCateogry && !category.childrenCateogry->empty();
      if (category.childrens.empty() && hasRows) {
        add(*category.childrenCateogry);
      } else {
        found_.push_back(&category);
      }
    }
  }
  std::vector<Category*> take() { return std::move(found_); }

 private:
  std::unordered_set<const CategoryInformation*> seen_;
  std::vector<Category*> found_;
};

}  // namespace

std::vector<CategoryInformation*> recordHolders(FeatureInformation& feature) {
  Holders<CategoryInformation> holders;
  holders.add(feature.categoryInfo);
  return holders.take();
}

std::vector<const CategoryInformation*> recordHolders(const FeatureInformation& feature) {
  Holders<const CategoryInformation> holders;
  holders.add(feature.categoryInfo);
  return holders.take();
}

}  // namespace sorrel
