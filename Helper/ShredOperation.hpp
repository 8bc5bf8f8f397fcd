#pragma once

#include <string_view>

#include "Helper/PathResult.hpp"

namespace sorrel::helper {

/// What to do with a path that was not yet dealt with.
enum class ShredStep { Done, FolderWaits };

/// Shreds the item at `path` if it is what the sender sees there, and tells how it went in `result`: a
/// regular file with one name is overwritten (FileShredder) and removed; of a link, or anything else without
/// content, the name is removed and never what it leads to. A folder is left for removeShreddedFolder().
///
/// ShreadFail: not overwritten, and still there, perhaps in part; also for what nobody finds, since nobody
/// can say how it went. DeleteError: refused, or overwritten and still there.
ShredStep shredPath(std::string_view path, const SenderView& seen, const RemovalPolicy& policy,
                    PathResult& result);

/// Removes the folder at `path` if it is empty, else ShreadFail. To be called for the deepest folders first,
/// when all other paths are done.
PathResult removeShreddedFolder(std::string_view path, const SenderView& seen, const RemovalPolicy& policy);

}  // namespace sorrel::helper
