#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sorrel {

/// Identifies a folder, independent of its names.
struct FolderIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;

  friend bool operator==(const FolderIdentity&, const FolderIdentity&) = default;
};

/// The folder at `path` ("." for the current one; links are followed; paths of any length) and its ancestors,
/// up to "/". Empty, with errno set, if one of them can't be reached.
std::vector<FolderIdentity> foldersUpFrom(const std::string& path);

/// Checks that the item at the absolute path `path` lies in the folder `root`, at any depth: 0 if it does,
/// EXDEV if it does not, and the errno of the failure if that can't be determined, such as ENOENT for a
/// missing ancestor. Links above the item are followed, since only their targets count; the item itself is
/// not looked up. The folder `root` does not lie in itself.
int containmentError(const std::string& path, const std::string& root);

}  // namespace sorrel
