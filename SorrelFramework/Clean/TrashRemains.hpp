#pragma once

#include <string>
#include <vector>

#include "SorrelFramework/Platform/URL.hpp"

namespace sorrel {

/// What is left in a desktop's trash when all that a scan listed was removed: items without a byte, which no
/// scan lists, records whose item is gone, and what a file manager was about to delete.
class TrashRemains {
 public:
  TrashRemains() = delete;

  /// Removes it from those of the folders `roots` that hold the items of a trash of the user (DesktopTrash);
  /// for an application whose user empties the whole trash. Items that have bytes, or could not be read, stay
  /// with their records. Returns the paths of what could not be removed, or brought up to date. Not while a
  /// clean of the same trash runs; on the calling thread.
  static std::vector<std::string> remove(const std::vector<URL>& roots);
};

}  // namespace sorrel
