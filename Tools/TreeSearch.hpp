#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "SorrelFramework/Scan/TreeWalk.hpp"
#include "Tools/FindQuery.hpp"

namespace sorrel::tools {

/// The matching items below a folder: paths that begin with the folder's path as given, a folder before its
/// contents, names in the order of their bytes. Like the index of macOS, it skips the contents of hidden
/// folders and of packages, but finds a hidden file and a package itself. Only files and folders count. Links
/// are not followed and other file systems not entered, unless `folder` itself is one; unreadable items are
/// skipped and reported to `unread`. Nothing for a missing folder.
std::vector<std::string> searchTree(const std::string& folder, const FindQuery& query,
                                    UnreadFolderHandler unread = {});

}  // namespace sorrel::tools
