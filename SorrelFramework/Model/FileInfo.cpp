#include "SorrelFramework/Model/FileInfo.hpp"

#include <utility>
#include <vector>

#include "SorrelFramework/Model/CategoryInfo.hpp"

namespace sorrel {

IdentityText::IdentityText(const IdentityText& other)
    : finderID_(other.finderID_),
      parentFinderID_(other.parentFinderID_),
      size_(other.size_),
      url_(other.url_),
      assigned_(other.assigned_ ? std::make_unique<const std::string>(*other.assigned_) : nullptr) {}

IdentityText& IdentityText::operator=(const IdentityText& other) {
  finderID_ = other.finderID_;
  parentFinderID_ = other.parentFinderID_;
  size_ = other.size_;
  url_ = other.url_;
  // The new one first: `other` may be this one.
  assigned_ = other.assigned_ ? std::make_unique<const std::string>(*other.assigned_) : nullptr;
  return *this;
}

std::string IdentityText::str() const {
  if (assigned_) return *assigned_;
  return std::to_string(finderID_) + ':' + std::to_string(parentFinderID_) + ':' + std::to_string(size_) +
         ':' + url_.absoluteString();
}

IdentityText& IdentityText::operator=(std::string_view text) {
  assigned_ = std::make_unique<const std::string>(text);
  return *this;
}

void IdentityText::take(const FileInformation& record) {
  finderID_ = record.finderID;
  parentFinderID_ = record.parentFinderID;
  size_ = record.size;
  // A scan numbers its records more than once: the count of the shared text is left alone where nothing
  // changed.
  if (!url_.sharedText().isSharedWith(record.url.sharedText())) url_ = record.url;
  assigned_.reset();
}

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
      childrens(std::move(newChildrens)),
      parentCategoryInfo(*this, newParentCategoryInfo.get()),
      fileKind(newFileKind),
      levelInt(newLevelInt),
      parentFileInfo(*this, newParentFileInfo.get()) {}

FileInformation::~FileInformation() {
  for (FileInformation& child : childrens) child.parentFileInfo.forget(*this);
}

TreeNode::Parents FileInformation::parents() const noexcept {
  return {{parentCategoryInfo.get(), parentFileInfo.get()}};
}

void FileInformation::forgetCategory(const CategoryInformation& category) {
  parentCategoryInfo.forget(category);
  if (childrens.empty()) return;
  // Also where this record goes with the category: one below it may lie in another array and live on.
  std::vector<FileInformation*> pending{this};
  while (!pending.empty()) {
    FileInformation* const record = pending.back();
    pending.pop_back();
    for (FileInformation& child : record->childrens) {
      child.parentCategoryInfo.forget(category);
      if (!child.childrens.empty()) pending.push_back(&child);
    }
  }
}

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
