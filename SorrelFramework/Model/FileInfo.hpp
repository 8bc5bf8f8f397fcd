#pragma once

#include <any>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "SorrelFramework/Model/Children.hpp"
#include "SorrelFramework/Model/Enumerations.hpp"
#include "SorrelFramework/Model/IdentityText.hpp"
#include "SorrelFramework/Model/Observed.hpp"
#include "SorrelFramework/Model/ParentLink.hpp"
#include "SorrelFramework/Model/Ref.hpp"
#include "SorrelFramework/Platform/Base/Date.hpp"
#include "SorrelFramework/Platform/Items/Image.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {

class CategoryInformation;

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
  /// Computed at the last assignment of finderID: a change of any other field leaves it stale, on purpose.
  IdentityText hashValueString;
  /// Payload of the scanner; it must be read back as its exact type. It refers to records of its own tree by
  /// plain pointers, never by handles.
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
  friend class Observed<FileInformation>;
  ~FileInformation() override;
  [[nodiscard]] Parents parents() const noexcept override;
  void dropChildren() noexcept override;
  void finderIDWasSet();
};

/// For sets of records: hashes the contents, not the object's address.
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
