#pragma once

#include <any>
#include <cstdint>
#include <string>
#include <vector>

#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"

namespace sorrel {

/// The fields of a new FileInformation by name; what is not given is empty, 0, false or off.
struct FileParts {
  Integer state = NSControlStateValueOff;
  Integer finderID = 0;
  Integer parentFinderID = 0;
  std::string title{};
  Image icon{};
  std::int64_t size = 0;
  Date date{};
  URL url{};
  bool canDelete = false;
  bool removeCategory = false;
  std::any attachInformation{};
  Children<FileInformation> childrens{};
  Ref<CategoryInformation> parentCategoryInfo{};
  Integer fileKind = rawValue(FilesKind::File);
  Integer levelInt = 0;
  Ref<FileInformation> parentFileInfo{};
};
[[nodiscard]] Ref<FileInformation> makeFile(FileParts parts);

/// The same for a CategoryInformation.
struct CategoryParts {
  Integer state = NSControlStateValueOff;
  Integer finderID = 0;
  std::string title{};
  Image icon{};
  std::int64_t size = 0;
  std::string description{};
  Integer kind = rawValue(CategoryInfomationKind::Common);
  std::vector<URL> urls{};
  Children<FileInformation> childrens{};
  Ref<FeatureInformation> featureInfo{};
  std::any attachInfomation{};
  Integer levelInt = 0;
  bool needRemoveCategory = false;
};
[[nodiscard]] Ref<CategoryInformation> makeCategory(CategoryParts parts);

}  // namespace sorrel
