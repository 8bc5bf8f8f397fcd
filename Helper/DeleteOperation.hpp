#pragma once

#include <string_view>

#include "Helper/PathResult.hpp"

namespace sorrel::helper {

/// Deletes the item at `path`, with all that lies below it, if it is what the sender sees there. What neither
/// side finds, in a place where it might have been deleted, is a success: somebody else was first. The
/// failure is DeleteError.
PathResult deletePath(std::string_view path, const SenderView& seen, const RemovalPolicy& policy);

}  // namespace sorrel::helper
