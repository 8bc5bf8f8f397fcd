#include "SorrelFramework/Model/FeatureInfo.hpp"

#include <utility>

#include "SorrelFramework/Model/ModuleInfo.hpp"

namespace sorrel {

FeatureInformation::FeatureInformation(Integer newFinderID, Integer newState, Image newIcon,
                                       std::string newTitle, std::string newDescription,
                                       Children<CategoryInformation> newCategoryInfo,
                                       const Ref<ModuleInformation>& newModuleInfo,
                                       std::any newAttachInfomation)
    : finderID(newFinderID),
      state(newState),
      icon(std::move(newIcon)),
      title(std::move(newTitle)),
      description(std::move(newDescription)),
      categoryInfo(std::move(newCategoryInfo)),
      moduleInfo(*this, newModuleInfo.get()),
      attachInfomation(std::move(newAttachInfomation)) {}

FeatureInformation::~FeatureInformation() {
  for (CategoryInformation& child : categoryInfo) child.forgetFeature(*this);
}

TreeNode::Parents FeatureInformation::parents() const noexcept { return {{moduleInfo.get()}}; }

}  // namespace sorrel
