#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/Platform/Files/MountTable.hpp"

namespace sorrel::helper {

/// Which file systems the helper works on: those that are known to keep their files on this machine and to
/// answer without a user's program or the network, and those that the administrator adds. A FUSE or network
/// file system may never answer, and answers what its maker likes.
class FileSystemFence {
 public:
  explicit FileSystemFence(std::vector<std::string> allowedTypes,
                           std::unique_ptr<MountSource> source = nullptr);

  /// Whether the mount of this number may be entered. Reads the mount table alone: the file system
  /// itself is not asked. A mount that is not in the table may not.
  [[nodiscard]] bool mayEnter(std::uint64_t mount);

 private:
  [[nodiscard]] bool isAllowed(std::string_view type) const;

  std::vector<std::string> allowedTypes_;
  MountTable table_;
};

}  // namespace sorrel::helper
