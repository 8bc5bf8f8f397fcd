#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "SorrelFramework/Platform/Base/Date.hpp"

namespace sorrel {

/// The result of one system call about an item itself; links are not followed.
struct FileStatus {
  std::uint32_t mode = 0;  ///< type and permission bits, as in stat(2)
  std::uint32_t uid = 0;
  std::int64_t size = 0;  ///< bytes; for a link, the length of its text
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::optional<Date> created;  ///< nothing if the file system does not store it
  Date modified;

  [[nodiscard]] bool isDirectory() const noexcept;
  [[nodiscard]] bool isRegularFile() const noexcept;
  /// Restricted deletion: only the owner of an entry may remove it.
  [[nodiscard]] bool isSticky() const noexcept;
};

/// Status of `name` in the open folder `folder`; nothing if it can't be reached.
std::optional<FileStatus> statusOf(int folder, const char* name);
/// The same by its path; a path with a NUL in it names nothing.
std::optional<FileStatus> statusOf(const std::string& path);
/// Status of an open file or folder.
std::optional<FileStatus> statusOf(int descriptor);

}  // namespace sorrel
