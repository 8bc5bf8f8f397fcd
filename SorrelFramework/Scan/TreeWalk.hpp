#pragma once

#include <cstdint>
#include <string>

#include "SorrelFramework/Scan/WalkRequest.hpp"

namespace sorrel {

/// Walks the folder `root` and makes a record for each item that the filter keeps. Blocks; threads of the
/// global queue that are free help. Every folder record gets the sum of all that lies below it, hidden items
/// and the insides of packages included, from the same pass over the disk: the figure that calculateSize
/// gives. A folder that a stop, or the error handler, kept the walk from reading whole has no record and is
/// in no total; items below it that were met have theirs.
WalkResult walkTree(const URL& root, const WalkRequest& request);

/// Sum of the sizes of everything but folders below the folder `path`, in bytes, on the calling thread. 0 for
/// anything that is no folder. A link to a folder is entered at the root alone. Breaks off with what it has
/// when `stop` says so.
std::int64_t sizeOfTree(const std::string& path, const StopTest& stop, UnreadFolderHandler unread = {});

}  // namespace sorrel
