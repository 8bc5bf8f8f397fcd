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
      categoryInfo(FieldOf(*this), std::move(newCategoryInfo)),
      moduleInfo(FieldOf(*this), newModuleInfo.get()),
      attachInfomation(std::move(newAttachInfomation)) {}

FeatureInformation::~FeatureInformation() = default;

void FeatureInformation::dropChildren() noexcept { categoryInfo.clear(); }

TreeNode::Parents FeatureInformation::parents() const noexcept { return {{moduleInfo.get()}}; }

}  // namespace sorrel
