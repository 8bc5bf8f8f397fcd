#include "SorrelFramework/Model/CategoryInfo.hpp"

#include <utility>

#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Units/MD5.hpp"

namespace sorrel {

CategoryInformation::CategoryInformation(Integer newState, Integer newFinderID, std::string newTitle,
                                         Image newIcon, std::int64_t newSize, std::string newDescription,
                                         Integer newKind, std::vector<URL> newURLs,
                                         Children<FileInformation> newChildrens,
                                         const Ref<FeatureInformation>& newFeatureInfo,
                                         std::any newAttachInfomation, Integer newLevelInt,
                                         bool newNeedRemoveCategory)
    : state(newState),
      finderID(*this, newFinderID),
      title(std::move(newTitle)),
      icon(std::move(newIcon)),
      size(newSize),
      description(std::move(newDescription)),
      kind(newKind),
      urls(std::move(newURLs)),
      childrens(std::move(newChildrens)),
      featureInfo(*this, newFeatureInfo.get()),
      attachInfomation(std::move(newAttachInfomation)),
      levelInt(newLevelInt),
      needRemoveCategory(newNeedRemoveCategory),
      parentCategory(*this, nullptr) {
  finderIDWasSet();
}

CategoryInformation::~CategoryInformation() { forgetCategory(*this); }

void CategoryInformation::forgetCategory(const CategoryInformation& category) {
  parentCategory.forget(category);
  for (FileInformation& child : childrens) child.forgetCategory(category);
  if (!childrenCateogry) return;
  for (CategoryInformation& child : *childrenCateogry) child.forgetCategory(category);
}

void CategoryInformation::forgetFeature(const FeatureInformation& feature) {
  featureInfo.forget(feature);
  if (!childrenCateogry) return;
  for (CategoryInformation& child : *childrenCateogry) child.forgetFeature(feature);
}

TreeNode::Parents CategoryInformation::parents() const noexcept {
  return {{featureInfo.get(), parentCategory.get()}};
}

void CategoryInformation::finderIDWasSet() {
  hashValueString = MD5(std::to_string(finderID) + ':' + std::to_string(kind) + ':' + std::to_string(size) +
                        ':' + describe(urls) + ':' + std::to_string(childrens.size()));
}

}  // namespace sorrel
