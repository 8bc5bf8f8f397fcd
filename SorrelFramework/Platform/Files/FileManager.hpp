#pragma once

#include <cstdint>
#include <string>

namespace sorrel {

/// True if something is at `path`; links are followed, so a broken link is nothing, and a path with a NUL in
/// it names nothing. `isDirectory`, if given, is set only when the answer is true.
bool fileExists(const std::string& path, bool* isDirectory = nullptr);

/// What the process may do with the entries of one folder.
struct FolderRights {
  bool writable = false;
  bool sticky = false;  ///< only the owner of an entry may remove it

  /// Of an open folder.
  static FolderRights of(int folder);
  /// True if an entry that belongs to `uid` can be taken out of the folder. Looks at the folder alone: flags
  /// and content of the entry do not count.
  [[nodiscard]] bool allowDeletion(std::uint32_t uid) const;
};

/// FolderRights of the folder that holds `path`, asked for the item there. An item that is missing counts as
/// deletable in a folder that is writable.
bool isDeletableFile(const std::string& path);

}  // namespace sorrel
