#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "SorrelFramework/Model/Enumerations.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"
#include "SorrelFramework/Scan/Duplicate/SubfolderSizes.hpp"

namespace sorrel {

/// Numbers the child categories: each is the index of its row in `childrenCateogry`.
enum class DuplicateGroupKind : Integer {
  File = 0,
  Folder = 1,
  Document = 2,
  Media = 3,
  Picture = 4,
  Other = 5,
  Archive = 6,
};

/// A file or folder that may have a twin.
struct DuplicateInfo {
  Integer fileNumSum = 0;  ///< 1 for a file; for a folder the files counted in it
  /// Bytes of a file. For a folder a computed size, a fingerprint that is no size on disk: see DuplicateWalk.
  Integer fileSize = 0;
  URL path;
  bool fileOrPath = true;   ///< true for a file, false for a folder
  SubfolderSizes sizeList;  ///< computed sizes of all folders below that the walk entered
};

/// Candidates by their size.
using DuplicatesBySize = std::unordered_map<Integer, std::vector<DuplicateInfo>>;
/// Twins by the text of their hash.
using DuplicatesByHash = std::unordered_map<std::string, std::vector<DuplicateInfo>>;

}  // namespace sorrel
