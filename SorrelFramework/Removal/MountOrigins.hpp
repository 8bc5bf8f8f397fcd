#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "SorrelFramework/Platform/Files/MountTable.hpp"
#include "SorrelFramework/Removal/ItemIdentity.hpp"
#include "SorrelFramework/Removal/PathWalk.hpp"

namespace sorrel {

/// Finds the location, in the file tree, of the folder that a mount shows. A bind mount of an inner folder
/// bypasses the ancestors of that folder; they are found through the other mounts of the same file system.
class MountOrigins {
 public:
  /// The items from "/" down to the shown folder, inclusive.
  using Chain = std::vector<ItemIdentity>;
  struct Origin {
    /// False if the mount shows an inner folder of a file system, and no other mount shows an ancestor of it;
    /// or if the mount table lacks the mount.
    bool isKnown = false;
    /// A chain could not be determined for lack of descriptors or memory.
    bool isInDoubt = false;
    /// One path for each other mount that shows the folder too. Empty for most mounts, which show a whole
    /// file system once.
    std::vector<Chain> chains;
  };

  /// A mount whose content is also reachable by other paths.
  struct Alias {
    Chain point;              ///< down to the mounted folder or file
    std::vector<Chain> same;  ///< down to the same item, by each other path
    /// Every item visited on the path to each layer of an overlay, with the layer at the end.
    std::vector<Chain> layers;
  };

  /// Enters only mounts that `trust` allows; without it, all that this machine serves itself, since a server
  /// may never answer.
  explicit MountOrigins(PathWalk::MountTrust trust);

  /// Reads the mount table again if it has changed. True if it was read.
  bool refresh();
  /// False if the table could not be read.
  [[nodiscard]] bool hasTable() const noexcept { return !table_.mounts().empty(); }
  /// The origin of the mount whose topmost folder is `shown`, as of the last refresh().
  [[nodiscard]] Origin of(const ItemIdentity& shown) const;
  /// All reachable mounts of this kind, as of the last refresh(). Nothing if the list may be incomplete for
  /// lack of descriptors or memory.
  [[nodiscard]] std::optional<std::vector<Alias>> aliases() const;

 private:
  /// A path that leads to the content of a mount.
  struct OtherPath {
    std::string path;
    bool isLonger;  ///< the other mount shows an ancestor of the folder
  };
  [[nodiscard]] std::vector<OtherPath> otherPathsTo(const Mount& mount) const;
  [[nodiscard]] PathWalk walkTo(const std::string& path, const PathWalk::LinkTrust& links) const;
  [[nodiscard]] bool addAlias(const Mount& mount, std::vector<Alias>& aliases) const;
  [[nodiscard]] bool addLayers(const Mount& mount, Alias& alias) const;

  PathWalk::MountTrust trust_;
  MountTable table_;
  std::unordered_map<std::string, std::vector<std::size_t>> byRoot_;  // in the table, by keyOf()
};

}  // namespace sorrel
