#pragma once

#include <optional>
#include <string>
#include <vector>

#include "SorrelFramework/Platform/Files/FolderContainment.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"
#include "SorrelFramework/Removal/RemovalTarget.hpp"

namespace sorrel {

/// What a clean never touches, neither by itself nor through the helper, which knows nothing of this process:
/// a record without a place (its URL is no file URL, or has a foreign host, a query or a fragment, or is that
/// of the empty path, which names whatever folder the process happens to be in), the current folder and those
/// above it, and on a macOS volume everything that does not lie below the volume's root when the links above
/// it are followed. What can't be looked up for want of descriptors and the like is not touched either. An
/// ordinary failure of the record each time.
class CleanFence {
 public:
  /// For the current folder and the host of this moment.
  CleanFence();

  /// 0 if the item may be removed as far as the fence goes, else an errno for removalErrorText().
  [[nodiscard]] int error(const URL& url) const;
  /// Only as far as the URL itself tells: EINVAL for a record without a place.
  [[nodiscard]] static int placeError(const URL& url);
  /// The rest, for the item that was found at `path` and may go as far as the removal's policy is concerned:
  /// the answer holds for that item and the way that led to it, whatever stands under the path by now.
  [[nodiscard]] int error(const std::string& path, const RemovalTarget& found) const;

 private:
  [[nodiscard]] int outsideError(const std::string& path) const;
  [[nodiscard]] int outsideError(const std::string& path, const RemovalTarget& found) const;
  [[nodiscard]] int currentFolderError(const std::string& path) const;
  [[nodiscard]] int errorOfFolder(const FolderIdentity& folder) const;

  std::string root_;  ///< of the macOS volume; "" for this machine
  std::optional<FolderIdentity> rootFolder_;
  std::vector<FolderIdentity> currentFolders_;
  int currentError_ = 0;  ///< why these are not known
};

}  // namespace sorrel
