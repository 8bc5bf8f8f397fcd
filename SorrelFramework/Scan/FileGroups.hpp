#pragma once

#include <cstdint>
#include <string>

#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Scan/ScanTypes.hpp"

namespace sorrel {

// Groups of alike files: a header, which has no file of its own, with its members as children.

/// What a new header takes from its group.
struct GroupHeader {
  std::size_t index = 0;  ///< of the group in its category
  std::string title;
  Image icon;
  FilesKind kind = FilesKind::File;
};

/// A header without members.
[[nodiscard]] Ref<FileInformation> makeGroupHeader(CategoryInformation& category, GroupHeader group);

/// Links the members to the header, numbers them, and adds up their sizes in the header's.
void addGroupMembers(const Ref<FileInformation>& header, const FileRecords& members);

/// The result of a clean for the ticked members of groups.
struct GroupRepair {
  std::int64_t deleted = 0;  ///< bytes
  FileRecords failures;      ///< members that could not be deleted
  std::string texts;         ///< their errors, a line each
};

/// After a clean: takes out the members that were deleted, and groups with fewer than two members; numbers
/// the rest, clears its ticks and sums up the headers. A group that was ticked as a whole goes as a whole or
/// stays as it is.
GroupRepair repairGroups(Children<FileInformation>& headers);

}  // namespace sorrel
