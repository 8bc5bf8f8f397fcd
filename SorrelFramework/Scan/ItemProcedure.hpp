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

/// Folder, File or Package, from the requested values; an absent value counts as false.
Integer kindOf(const ResourceValues& values);

/// True if the user's process may delete the item itself: the folder allows it, and the owner is the user or
/// has no name.
class DeletionRule {
 public:
  [[nodiscard]] bool canDelete(const FolderRights& folder, std::uint32_t uid);
  /// The same for an item that is named by its path. If the owner can't be read, it counts as an owner
  /// without a name.
  [[nodiscard]] bool canDelete(const std::string& path);

 private:
  [[nodiscard]] bool isUserOrNobody(std::uint32_t uid);

  std::optional<std::uint32_t> lastUID_;  // most items of a folder have one owner
  bool lastAnswer_ = false;
};

/// The values that all records of a scan share.
struct RecordTemplate {
  Integer state = 0;
  Integer finderID = 0;
  Integer parentFinderID = 0;
  Ref<CategoryInformation> parentCategoryInfo;
};

/// A record for an item that was found. Moves title and icon out of `values`.
Ref<FileInformation> makeRecord(const RecordTemplate& common, const URL& url, ResourceValues& values,
                                Integer kind, std::int64_t size, bool canDelete);

}  // namespace sorrel
