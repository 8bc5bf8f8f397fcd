#include "SorrelFramework/Model/FileInfo.hpp"

#include <utility>

#include "SorrelFramework/Model/CategoryInfo.hpp"

namespace sorrel {

FileInformation::FileInformation(Integer newState, Integer newFinderID, Integer newParentFinderID,
                                 std::string newTitle, Image newIcon, std::int64_t newSize, Date newDate,
                                 URL newURL, std::string_view /*description*/, bool newCanDelete,
                                 bool newRemoveCategory, std::any newAttachInformation,
                                 Children<FileInformation> newChildrens,
                                 const Ref<CategoryInformation>& newParentCategoryInfo, Integer newFileKind,
                                 Integer newLevelInt, const Ref<FileInformation>& newParentFileInfo)
    : state(newState),
      finderID(*this, newFinderID),
      parentFinderID(newParentFinderID),
      title(std::move(newTitle)),
      icon(std::move(newIcon)),
      size(newSize),
      date(newDate),
      url(std::move(newURL)),
      canDelete(newCanDelete),
      removeCategory(newRemoveCategory),
      hashValueString(newFinderID, newParentFinderID, newSize, url),
      attachInformation(std::move(newAttachInformation)),
      childrens(FieldOf(*this), std::move(newChildrens)),
      parentCategoryInfo(FieldOf(*this), newParentCategoryInfo.get()),
      fileKind(newFileKind),
      levelInt(newLevelInt),
      parentFileInfo(FieldOf(*this), newParentFileInfo.get()) {}

FileInformation::~FileInformation() = default;

TreeNode::Parents FileInformation::parents() const noexcept {
  return {{parentCategoryInfo.get(), parentFileInfo.get()}};
}

void FileInformation::dropChildren() noexcept { childrens.clear(); }

void FileInformation::finderIDWasSet() { hashValueString.take(finderID, parentFinderID, size, url); }

bool operator==(const FileInformation& a, const FileInformation& b) noexcept {
  return a.finderID == b.finderID && a.parentFinderID == b.parentFinderID && a.size == b.size &&
         a.url == b.url;
}

std::size_t RecordHash::operator()(const FileInformation& record) const noexcept {
  std::size_t seed = 0;
  const auto feed = [&seed](std::size_t value) {
    seed ^= value + 0x9e3779b97f4a7c15ULL + (seed << 6U) + (seed >> 2U);  // boost's hash_combine
  };
  feed(std::hash<Integer>()(record.finderID));
  feed(std::hash<Integer>()(record.parentFinderID));
  feed(std::hash<std::int64_t>()(record.size));
  feed(std::hash<URL>()(record.url));
  return seed;
}

}  // namespace sorrel
