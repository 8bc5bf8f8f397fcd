#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Platform/Files/FileManager.hpp"
#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Scan/ScanTypes.hpp"

namespace sorrel {

/// The icon of a record whose item has none: the picture "App_Cache", or an empty image.
const Image& defaultRecordImage();

/// Folder, File or Package, from values that were asked for; an absent value counts as false.
Integer kindOf(const ResourceValues& values);

/// True if the user's process may delete the item itself: the folder allows it, and the owner is the user or
/// has no name.
class DeletionRule {
 public:
  [[nodiscard]] bool canDelete(const FolderRights& folder, std::uint32_t uid);
  /// The same for an item that is named by its path. One whose owner can't be read counts as nobody's.
  [[nodiscard]] bool canDelete(const std::string& path);

 private:
  [[nodiscard]] bool isUserOrNobody(std::uint32_t uid);

  std::optional<std::uint32_t> lastUID_;  // a folder's items mostly have one owner
  bool lastAnswer_ = false;
};

/// What a new record of a scan has in common with the others.
struct RecordTemplate {
  Integer state = 0;
  Integer finderID = 0;
  Integer parentFinderID = 0;
  Ref<CategoryInformation> parentCategoryInfo;
};

/// A record for an item that was found. Takes title and icon out of `values`.
Ref<FileInformation> makeRecord(const RecordTemplate& common, const URL& url, ResourceValues& values,
                                Integer kind, std::int64_t size, bool canDelete);

}  // namespace sorrel
