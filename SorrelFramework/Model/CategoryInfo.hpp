#pragma once

#include <any>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "SorrelFramework/Model/Children.hpp"
#include "SorrelFramework/Model/Enumerations.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Model/Observed.hpp"
#include "SorrelFramework/Model/ParentLink.hpp"
#include "SorrelFramework/Model/Ref.hpp"
#include "SorrelFramework/Platform/Items/Image.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {

class FeatureInformation;

/// One row of a feature's result list, with the folders that its scanner walks and the records that were
/// found.
class CategoryInformation final : public TreeNode {
 public:
  CategoryInformation(Integer state, Integer finderID, std::string title, Image icon, std::int64_t size,
                      std::string description, Integer kind, std::vector<URL> urls,
                      Children<FileInformation> childrens, const Ref<FeatureInformation>& featureInfo,
                      std::any attachInfomation, Integer levelInt, bool needRemoveCategory);

  Integer state;  ///< tick state
  Observed<CategoryInformation>
      finderID;  ///< identity inside the feature; each assignment refreshes hashValueString
  std::string title;
  Image icon;
  std::int64_t size;  ///< total bytes
  std::string description;
  Integer kind;           ///< raw CategoryInfomationKind
  std::vector<URL> urls;  ///< the roots that the scanner walks
  Children<FileInformation> childrens;
  ParentLink<FeatureInformation> featureInfo;  ///< owner, never empty
  std::any attachInfomation;                   ///< payload, as in FileInformation
  /// Upper-case MD5 of "finderID:kind:size:urls:count of childrens", as of the last assignment of finderID.
  std::string hashValueString;
  Integer levelInt;  ///< 0 for a top row, 1 below a synthetic "All" row, deeper where a scanner says so
  bool needRemoveCategory;  ///< set and read by a clean
  /// Sub-categories; without a value the row is not a parent row.
  std::optional<Children<CategoryInformation>> childrenCateogry;
  ParentLink<CategoryInformation> parentCategory;  ///< the category that holds this one in childrenCateogry

 private:
  friend class Observed<CategoryInformation>;
  ~CategoryInformation() override;
  [[nodiscard]] Parents parents() const noexcept override;
  void dropChildren() noexcept override;
  void finderIDWasSet();
};

}  // namespace sorrel
