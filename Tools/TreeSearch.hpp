#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "SorrelFramework/Scan/TreeWalk.hpp"
#include "Tools/FindQuery.hpp"

namespace sorrel::tools {

/// What lies below a folder and matches: paths that begin with the folder's as it was given, a folder before
/// what lies in it, names in the order of their bytes. As the index of macOS has it, what lies in a hidden
/// folder or in a package is not found, while a hidden file and a package itself are. Files and folders alone
/// count. Links are not followed and other file systems not entered, unless `folder` itself is one; what
/// can't be read is passed over and reported to `unread`. Nothing for a folder that is missing.
std::vector<std::string> searchTree(const std::string& folder, const FindQuery& query,
                                    UnreadFolderHandler unread = {});

}  // namespace sorrel::tools
