#pragma once

#include <map>
#include <string>
#include <vector>

#include "SorrelFramework/Scan/Duplicate/DuplicateInfo.hpp"
#include "SorrelFramework/Scan/FileGroups.hpp"

namespace sorrel {

/// Titles of the child categories by DuplicateGroupKind.
using DuplicateTitles = std::map<Integer, std::string>;

/// Makes the child categories anew, one for each title, empty, ascending by kind.
void resetChildCategories(CategoryInformation& allCategory, const DuplicateTitles& titles);

/// Adds a group's header, and its bytes, to the child categories of these kinds.
void addToChildCategories(CategoryInformation& allCategory, const Ref<FileInformation>& header,
                          const std::vector<Integer>& kinds);

/// The kinds of a group by its header: Folder and Other for a group of folders, else those of the first
/// member.
[[nodiscard]] std::vector<Integer> kindsOf(const FileInformation& header);

/// The kinds of the group that the file belongs to, by the tree of its content type.
[[nodiscard]] std::vector<Integer> kindsOfFile(const FileInformation& file);

/// The repair of the tree after a clean; see DuplicateScanService::sortCategory().
GroupRepair repairDuplicates(CategoryInformation& allCategory, const DuplicateTitles& titles);

/// The keys from which the records of members are made.
constexpr ResourceKeys kMemberKeys = NSURLLocalizedNameKey | NSURLFileSizeKey | NSURLEffectiveIconKey |
                                     NSURLIsDirectoryKey | NSURLIsPackageKey |
                                     NSURLContentModificationDateKey | NSURLLocalizedTypeDescriptionKey;

}  // namespace sorrel
