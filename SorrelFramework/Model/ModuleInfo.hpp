#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/Model/Children.hpp"
#include "SorrelFramework/Model/Enumerations.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/Ref.hpp"
#include "SorrelFramework/Platform/Items/Image.hpp"

namespace sorrel {

/// A module of the application, such as a cleaner page; the top level of the information tree.
class ModuleInformation final : public TreeNode {
 public:
  ModuleInformation(Integer finderID, std::string title, std::string type, Image image,
                    std::string description, std::string version, Children<FeatureInformation> featureInfo);

  Integer finderID;  ///< sort key and identity
  std::string title;
  std::string type;  ///< free word of the catalogue, not interpreted
  Image image;
  std::string description;
  std::string version;                       ///< text of the catalogue, not interpreted
  Children<FeatureInformation> featureInfo;  ///< in catalogue order

  /// Reads the module catalogue, a property list, into the first three levels of the tree, modules ascending
  /// by finderID. Without a path: the resource "Feature.plist" of the main bundle. A catalogue that is
  /// missing, is not a dictionary, or lacks a required value is a fatal stop. "file://" locations are
  /// interpreted in the layout of Host::current() and returned as paths on this machine.
  static std::vector<Ref<ModuleInformation>> getModule(
      const std::optional<std::string>& moduleFile = std::nullopt);

  /// `text` with every "file://~/" replaced by the user's home in the layout of Host::current(); the rest is
  /// unchanged.
  static std::string updateModuleURL(std::string_view text);

 private:
  ~ModuleInformation() override;
  void dropChildren() noexcept override;
};

}  // namespace sorrel
