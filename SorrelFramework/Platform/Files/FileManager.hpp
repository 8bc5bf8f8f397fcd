#pragma once

#include <cstdint>
#include <string>

namespace sorrel {

/// True if an item exists at `path`; links are followed, so a broken link counts as missing, and a path with
/// a NUL in it names nothing. `isDirectory`, if given, is set only if the result is true.
bool fileExists(const std::string& path, bool* isDirectory = nullptr);

/// The permissions of the process on the entries of one folder.
struct FolderRights {
  bool writable = false;
  bool sticky = false;  ///< only the owner of an entry may remove it

  /// The permissions on an open folder.
  static FolderRights of(int folder);
  /// True if an entry owned by `uid` can be removed from the folder. Checks the folder only: flags and
  /// content of the entry do not count.
  [[nodiscard]] bool allowDeletion(std::uint32_t uid) const;
};

/// FolderRights of the parent folder of `path`, applied to the item there. A missing item counts as deletable
/// if the folder is writable.
bool isDeletableFile(const std::string& path);

}  // namespace sorrel
