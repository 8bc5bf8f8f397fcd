#pragma once

#include <string_view>

#include "Helper/PathResult.hpp"

namespace sorrel::helper {

/// The next step for a path.
enum class ShredStep { Done, FolderWaits };

/// Shreds the item at `path` if it is the item that the sender saw, and stores the result in `result`: a
/// regular file without further hard links is overwritten (FileShredder) and removed; an item without
/// content, such as a link, is removed by name, and a link's target is never touched. A folder is left for
/// removeShreddedFolder().
///
/// ShreadFail: not overwritten, and still there, perhaps in part; also if no item is found, because its fate
/// is unknown. DeleteError: refused, or overwritten and still there.
ShredStep shredPath(std::string_view path, const SenderView& seen, const RemovalPolicy& policy,
                    PathResult& result);

/// Removes the folder at `path` if it is empty, else ShreadFail. To be called for the deepest folders first,
/// when all other paths are done.
PathResult removeShreddedFolder(std::string_view path, const SenderView& seen, const RemovalPolicy& policy);

}  // namespace sorrel::helper
