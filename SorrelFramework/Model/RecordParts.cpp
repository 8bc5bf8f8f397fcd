#include "SorrelFramework/Model/RecordParts.hpp"

#include <utility>

namespace sorrel {

Ref<FileInformation> makeFile(FileParts parts) {
  return makeRef<FileInformation>(parts.state, parts.finderID, parts.parentFinderID, std::move(parts.title),
                                  std::move(parts.icon), parts.size, parts.date, std::move(parts.url), "",
                                  parts.canDelete, parts.removeCategory, std::move(parts.attachInformation),
                                  std::move(parts.childrens), parts.parentCategoryInfo, parts.fileKind,
                                  parts.levelInt, parts.parentFileInfo);
}

Ref<CategoryInformation> makeCategory(CategoryParts parts) {
  return makeRef<CategoryInformation>(
      parts.state, parts.finderID, std::move(parts.title), std::move(parts.icon), parts.size,
      std::move(parts.description), parts.kind, std::move(parts.urls), std::move(parts.childrens),
      parts.featureInfo, std::move(parts.attachInfomation), parts.levelInt, parts.needRemoveCategory);
}

}  // namespace sorrel
