#pragma once

#include <optional>
#include <string>
#include <vector>

#include "SorrelFramework/Platform/Files/FolderContainment.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"
#include "SorrelFramework/Removal/RemovalTarget.hpp"

namespace sorrel {

/// Items that a clean never touches, neither by itself nor through the helper, which knows nothing of this
/// process: a record whose URL names no local item (it is no file URL, or has a foreign host, a query or a
/// fragment, or is that of the empty path, which means the current folder of the process), the current folder
/// and its ancestors, and on a macOS volume everything that does not lie below the volume's root after the
/// links in its path are followed. An item that can't be looked up for lack of descriptors or memory is not
/// touched either. Each refusal is an ordinary failure of the record.
class CleanFence {
 public:
  /// For the current folder and the host at this time.
  CleanFence();

  /// 0 if the fence allows the removal of the item, else an errno for removalErrorText().
  [[nodiscard]] int error(const URL& url) const;
  /// The check of the URL alone: EINVAL for a URL that names no local item.
  [[nodiscard]] static int placeError(const URL& url);
  /// The remaining checks, for an item that was found at `path` and that the removal's policy allows: the
  /// result applies to that item and the path walked to it, even if the path leads to another item by now.
  [[nodiscard]] int error(const std::string& path, const RemovalTarget& found) const;

 private:
  [[nodiscard]] int outsideError(const std::string& path) const;
  [[nodiscard]] int outsideError(const std::string& path, const RemovalTarget& found) const;
  [[nodiscard]] int currentFolderError(const std::string& path) const;
  [[nodiscard]] int errorOfFolder(const FolderIdentity& folder) const;

  std::string root_;  ///< of the macOS volume; "" for this machine
  std::optional<FolderIdentity> rootFolder_;
  std::vector<FolderIdentity> currentFolders_;
  int currentError_ = 0;  ///< why the current folders are unknown
};

}  // namespace sorrel
