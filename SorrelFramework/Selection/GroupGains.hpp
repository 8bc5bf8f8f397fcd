#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sorrel {
class FileInformation;
}  // namespace sorrel

namespace sorrel {

/// The bytes that the removal of one member of a group of equal files would free, if everything else stays.
struct Gain {
  std::int64_t bytes = 0;
  /// Why that is not the member's size, or another remark: "hard link of PATH", "clone of PATH"; usually "".
  /// PATH is an earlier member.
  std::string note;
};

/// The gains of the members of a group, in their order, from the current state of the disk. Blocks that a
/// clone, a deduplicated file or a snapshot also uses are not freed, nor is a file with another hard link.
/// For a folder the size counts.
std::vector<Gain> gainsOf(const FileInformation& group);

}  // namespace sorrel
