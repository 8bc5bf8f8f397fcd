#pragma once

#include <any>
#include <string>

#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/Children.hpp"
#include "SorrelFramework/Model/Enumerations.hpp"
#include "SorrelFramework/Model/ParentLink.hpp"
#include "SorrelFramework/Model/Ref.hpp"
#include "SorrelFramework/Platform/Items/Image.hpp"

namespace sorrel {

class ModuleInformation;

/// One scanner's node in the tree.
class FeatureInformation final : public TreeNode {
 public:
  FeatureInformation(Integer finderID, Integer state, Image icon, std::string title, std::string description,
                     Children<CategoryInformation> categoryInfo, const Ref<ModuleInformation>& moduleInfo,
                     std::any attachInfomation);

  Integer finderID;  ///< identity, and the key of the feature's entry in SuperScanService::scanStatus
  Integer state;     ///< tick state
  Image icon;
  std::string title;
  std::string description;
  Children<CategoryInformation> categoryInfo;  ///< ascending by finderID when loaded
  ParentLink<ModuleInformation> moduleInfo;    ///< owner, never empty
  std::any attachInfomation;                   ///< payload, as in FileInformation

 private:
  ~FeatureInformation() override;
  [[nodiscard]] Parents parents() const noexcept override;
  void dropChildren() noexcept override;
};

}  // namespace sorrel
