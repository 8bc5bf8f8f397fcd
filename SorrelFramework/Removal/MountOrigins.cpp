#include "SorrelFramework/Removal/MountOrigins.hpp"

#include <optional>
#include <string>
#include <utility>

namespace sorrel {
namespace {

/// The rest of `root` below `above`, with a slash at its beginning or empty; nothing if it lies elsewhere.
std::optional<std::string_view> below(std::string_view above, std::string_view root) {
  if (above == "/") above = "";
  if (root == "/") root = "";
  if (!root.starts_with(above)) return std::nullopt;
  root.remove_prefix(above.size());
  if (!root.empty() && root.front() != '/') return std::nullopt;
  return root;
}

/// A subvolume is the top of a tree of its own, which other subvolumes need not show.
bool isSubvolume(const Mount& mount, const ItemIdentity& shown) {
  constexpr std::uint64_t kTopOfSubvolume = 256;
  return mount.type == "btrfs" && shown.number.inode == kTopOfSubvolume;
}

/// The points of mounts are paths without links.
bool trustsNoLink(std::uint32_t /*owner*/) { return false; }

}  // namespace

MountOrigins::MountOrigins(PathWalk::MountTrust trust) : trust_(std::move(trust)) {}

MountOrigins::Origin MountOrigins::of(const ItemIdentity& shown) const {
  Origin origin;
  const Mount* const mount = table_.find(shown.mount);
  if (mount == nullptr) return origin;
  origin.isKnown = mount->root == "/" || isSubvolume(*mount, shown);
  for (const Mount& other : table_.mounts()) {
    if (other.number == mount->number || other.device != mount->device) continue;
    const auto rest = below(other.root, mount->root);
    if (!rest) continue;
    const PathWalk walk = PathWalk::into(other.point + std::string(*rest), trustsNoLink, trust_);
    // The table's paths may be out of date, and a later mount may hide what they name.
    if (walk.error() != 0 || walk.chain().back().number != shown.number) continue;
    origin.isKnown = origin.isKnown || !rest->empty();
    origin.chains.push_back(walk.chain());
  }
  return origin;
}

}  // namespace sorrel
