#pragma once

#include <string_view>

#include "Helper/PathResult.hpp"

namespace sorrel::helper {

/// Deletes the item at `path`, with everything below it, if it is the item that the sender saw. If neither
/// side finds an item, at a path where a deletion would be allowed, that is a success: another process was
/// first. The failure is DeleteError.
PathResult deletePath(std::string_view path, const SenderView& seen, const RemovalPolicy& policy);

}  // namespace sorrel::helper
