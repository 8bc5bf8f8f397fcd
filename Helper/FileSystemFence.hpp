#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/Platform/Files/MountTable.hpp"

namespace sorrel::helper {

/// The file systems that the helper works on: those known to store their files on this machine and to answer
/// without a user's program or the network, and those that the administrator adds. A FUSE or network file
/// system may never answer, and may answer anything.
class FileSystemFence {
 public:
  explicit FileSystemFence(std::vector<std::string> allowedTypes,
                           std::unique_ptr<MountSource> source = nullptr);

  /// True if the mount with this ID may be entered. Reads the mount table only: the file system itself is not
  /// queried. False for a mount that is not in the table.
  [[nodiscard]] bool mayEnter(std::uint64_t mount);

 private:
  [[nodiscard]] bool isAllowed(std::string_view type) const;

  std::vector<std::string> allowedTypes_;
  MountTable table_;
};

}  // namespace sorrel::helper
