#pragma once

#include <string_view>
#include <vector>

#include "SorrelFramework/Platform/Files/MountTable.hpp"
#include "SorrelFramework/Removal/ItemIdentity.hpp"
#include "SorrelFramework/Removal/PathWalk.hpp"

namespace sorrel {

/// Where the folder that a mount shows lies in the file tree. A bind mount of an inner folder leads past the
/// folders that the shown one lies in; they are found by the other mounts of the same file system.
class MountOrigins {
 public:
  /// The items from "/" down to the shown folder, both included.
  using Chain = std::vector<ItemIdentity>;
  struct Origin {
    /// False if the mount shows a folder of the middle of a file system, and no mount shows one above it; or
    /// if the mount table lacks the mount.
    bool isKnown = false;
    /// Through each other mount that shows the folder too. Empty for most mounts, which show a whole file
    /// system at one place.
    std::vector<Chain> chains;
  };

  /// Walks only over mounts that `trust` lets it enter.
  explicit MountOrigins(PathWalk::MountTrust trust);

  /// Reads the mount table again if it has changed. True if it was read.
  bool refresh() { return table_.refresh(); }
  /// False if the table could not be read.
  [[nodiscard]] bool hasTable() const noexcept { return !table_.mounts().empty(); }
  /// The origin of the mount whose topmost folder is `shown`, as of the last refresh().
  [[nodiscard]] Origin of(const ItemIdentity& shown) const;

 private:
  PathWalk::MountTrust trust_;
  MountTable table_;
};

}  // namespace sorrel
