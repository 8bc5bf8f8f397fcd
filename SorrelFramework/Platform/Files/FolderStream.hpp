#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel {

/// Reads the entries of an open folder, many at a time with one system call; "." and ".." are left out. The
/// order is that of the file system.
class FolderStream {
 public:
  enum class Type : std::uint8_t { Unknown, Directory, Other };
  struct Entry {
    const char* name;  ///< ends in NUL; valid until the next call
    std::size_t length;
    Type type;  ///< Unknown if the file system does not report it
  };

  FolderStream();

  /// Starts at the first entry of `folder`, which must stay open; if it was read before, continues where that
  /// ended.
  void start(int folder);
  /// The next entry; null at the end, and after an error.
  const Entry* next();
  /// True if the next call of next() will query the system: all entries of the last buffer were returned.
  [[nodiscard]] bool isDrained() const noexcept { return at_ == filled_; }
  /// The errno that ended the listing early, 0 if it is complete.
  [[nodiscard]] int error() const noexcept { return error_; }

 private:
  std::vector<char> buffer_;
  std::size_t filled_ = 0;
  std::size_t at_ = 0;
  int folder_ = -1;
  int error_ = 0;
  Entry entry_{};
};

/// Opens the folder `name` of the open folder `parent`; follows no link and enters no mount point, not even a
/// bind mount within the same file system. Sets errno on failure.
FileDescriptor openFolderIn(int parent, const char* name);

}  // namespace sorrel
