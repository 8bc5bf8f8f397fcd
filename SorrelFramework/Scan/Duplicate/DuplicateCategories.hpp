#pragma once

#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"

namespace sorrel {

/// Makes the child categories anew, one for each title of childrenCateogryDict, empty, ascending by kind.
void resetChildCategories(CategoryInformation& allCategory);

/// Adds a group's header, and its bytes, to the child categories of these kinds.
void addToChildCategories(CategoryInformation& allCategory, const Ref<FileInformation>& header,
                          const std::vector<Integer>& kinds);

/// The kinds of a group by its header: of a group of folders Folder and Other, of any other those of its
/// first member.
[[nodiscard]] std::vector<Integer> kindsOf(const FileInformation& header);

/// What the records of members are made from.
constexpr ResourceKeys kMemberKeys = NSURLLocalizedNameKey | NSURLFileSizeKey | NSURLEffectiveIconKey |
                                     NSURLIsDirectoryKey | NSURLIsPackageKey |
                                     NSURLContentModificationDateKey | NSURLLocalizedTypeDescriptionKey;

}  // namespace sorrel
