#pragma once

#include <cstdint>
#include <string>

#include "SorrelFramework/Scan/WalkRequest.hpp"

namespace sorrel {

/// Walks the folder `root` and makes a record for each item that the filter keeps. Blocks; free threads of
/// the global queue help. Every folder record gets the sum of everything below it, including hidden items and
/// the contents of packages, from the same pass over the disk: the same figure as calculateSize. A folder
/// that could not be read completely because of a stop or the error handler has no record and is in no total;
/// items found below it have theirs.
WalkResult walkTree(const URL& root, const WalkRequest& request);

/// Sum of the sizes of all items except folders below the folder `path`, in bytes, on the calling thread. 0
/// for an item that is not a folder. A link to a folder is followed at the root only. Stops with the partial
/// sum when `stop` says so.
std::int64_t sizeOfTree(const std::string& path, const StopTest& stop, UnreadFolderHandler unread = {});

}  // namespace sorrel
