#pragma once

#include <any>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "SorrelFramework/Model/Enumerations.hpp"
#include "SorrelFramework/Model/Observed.hpp"
#include "SorrelFramework/Model/Ref.hpp"
#include "SorrelFramework/Platform/Date.hpp"
#include "SorrelFramework/Platform/Image.hpp"
#include "SorrelFramework/Platform/URL.hpp"

namespace sorrel {

class CategoryInformation;
class FileInformation;

/// Identity text of a file record: "finderID:parentFinderID:size:url" with the values of the moment it was
/// taken. Kept as those values and written out when somebody reads it, since a scan makes a million of them
/// and reads few.
class IdentityText {
 public:
  IdentityText(const IdentityText& other);
  IdentityText& operator=(const IdentityText& other);
  [[nodiscard]] std::string str() const;
  operator std::string() const { return str(); }
  IdentityText& operator=(std::string_view text);

  friend bool operator==(const IdentityText& a, const IdentityText& b) { return a.str() == b.str(); }
  friend bool operator==(const IdentityText& a, std::string_view b) { return a.str() == b; }

 private:
  friend class FileInformation;
  IdentityText(Integer finderID, Integer parentFinderID, std::int64_t size, URL url)
      : finderID_(finderID), parentFinderID_(parentFinderID), size_(size), url_(std::move(url)) {}
  void take(const FileInformation& record);

  Integer finderID_;
  Integer parentFinderID_;
  std::int64_t size_;
  URL url_;
  std::unique_ptr<const std::string>
      assigned_;  // a text of the application's own, until the next observation
};

/// One file, folder, package or abstract trace of the information tree.
class FileInformation final : public TreeNode {
 public:
  /// `description` is accepted from every caller and dropped: the record has no such field.
  FileInformation(Integer state, Integer finderID, Integer parentFinderID, std::string title, Image icon,
                  std::int64_t size, Date date, URL url, std::string_view description, bool canDelete,
                  bool removeCategory, std::any attachInformation, Children<FileInformation> childrens,
                  const Ref<CategoryInformation>& parentCategoryInfo, Integer fileKind, Integer levelInt,
                  const Ref<FileInformation>& parentFileInfo = {});

  Integer state;                       ///< tick state
  Observed<FileInformation> finderID;  ///< identity among siblings; each assignment refreshes hashValueString
  Integer parentFinderID;              ///< finderID of the category that the record was found for
  std::string title;                   ///< display name
  Image icon;
  std::int64_t size;  ///< bytes
  Date date;
  URL url;
  bool canDelete;       ///< the user may delete it directly; otherwise it goes through the privileged helper
  bool removeCategory;  ///< when this record is cleaned, its category goes too
  /// As of the last assignment of finderID: a change of any other field leaves it stale, on purpose.
  IdentityText hashValueString;
  /// Payload of whoever made the record; read back with its exact type or not at all. It points at records of
  /// its own tree with plain pointers, never with handles.
  std::any attachInformation;
  Children<FileInformation> childrens;
  ParentLink<CategoryInformation> parentCategoryInfo;
  Integer fileKind;  ///< raw FilesKind
  Integer levelInt;  ///< depth under the category; 0 for a direct child
  ParentLink<FileInformation> parentFileInfo;
  Integer deleteStatus = rawValue(DeleteStatus::None);  ///< raw DeleteStatus
  std::string deleteErrorDesc;

  /// finderID, parentFinderID, size and url; no other field takes part.
  friend bool operator==(const FileInformation& a, const FileInformation& b) noexcept;

 private:
  friend class CategoryInformation;
  friend class Observed<FileInformation>;
  ~FileInformation() override;
  [[nodiscard]] Parents parents() const noexcept override;
  void finderIDWasSet() { hashValueString.take(*this); }
  void forgetCategory(const CategoryInformation& category);
};

/// For sets of records: by what they hold, not by which object they are.
struct RecordHash {
  std::size_t operator()(const FileInformation& record) const noexcept;
  std::size_t operator()(const Ref<FileInformation>& record) const noexcept { return (*this)(*record); }
};
struct RecordEqual {
  bool operator()(const Ref<FileInformation>& a, const Ref<FileInformation>& b) const noexcept {
    return *a == *b;
  }
};

}  // namespace sorrel

template <>
struct std::hash<sorrel::FileInformation> : sorrel::RecordHash {};
