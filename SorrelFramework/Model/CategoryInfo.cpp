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
      childrens(FieldOf(*this), std::move(newChildrens)),
      featureInfo(FieldOf(*this), newFeatureInfo.get()),
      attachInfomation(std::move(newAttachInfomation)),
      levelInt(newLevelInt),
      needRemoveCategory(newNeedRemoveCategory),
      childrenCateogry(FieldOf(*this)),
      parentCategory(FieldOf(*this), nullptr) {
  finderIDWasSet();
}

CategoryInformation::~CategoryInformation() = default;

void CategoryInformation::dropChildren() noexcept {
  childrens.clear();
  if (childrenCateogry) childrenCateogry->clear();
}

TreeNode::Parents CategoryInformation::parents() const noexcept {
  return {{featureInfo.get(), parentCategory.get()}};
}

void CategoryInformation::finderIDWasSet() {
  hashValueString = MD5(std::to_string(finderID) + ':' + std::to_string(kind) + ':' + std::to_string(size) +
                        ':' + describe(urls) + ':' + std::to_string(childrens.size()));
}

}  // namespace sorrel
