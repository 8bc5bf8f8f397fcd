#include "SorrelFramework/Removal/MountOrigins.hpp"

#include <unistd.h>

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

#include "SorrelFramework/Removal/LookupError.hpp"

namespace sorrel {
namespace {

/// A subvolume is the root of its own tree, which other subvolumes need not show.
bool isSubvolume(const Mount& mount, const ItemIdentity& shown) {
  constexpr std::uint64_t kTopOfSubvolume = 256;
  return mount.type == "btrfs" && shown.number.inode == kTopOfSubvolume;
}

/// Mount points in the table are paths without links.
bool trustsNoLink(std::uint32_t /*owner*/) { return false; }
/// The path of a layer may contain links.
bool trustsEveryLink(std::uint32_t /*owner*/) { return true; }

/// True if the walk failed for a reason that says nothing about the path.
bool isDoubt(const PathWalk& walk) {
  return walk.error() != 0 && !walk.isRefused() && !tellsOfNoPlace(walk.error());
}

/// Mounts of one device that show the same folder have the same key.
std::string keyOf(const std::string& device, std::string_view root) {
  return device + '\0' + std::string(root == "/" ? "" : root);
}

}  // namespace

MountOrigins::MountOrigins(PathWalk::MountTrust trust) : trust_(std::move(trust)) {}

bool MountOrigins::refresh() {
  if (!table_.refresh()) return false;
  byRoot_.clear();
  const std::vector<Mount>& mounts = table_.mounts();
  for (std::size_t i = 0; i < mounts.size(); ++i)
    byRoot_[keyOf(mounts[i].device, mounts[i].root)].push_back(i);
  return true;
}

/// Paths through every other mount of the device that shows the folder or an ancestor of it.
std::vector<MountOrigins::OtherPath> MountOrigins::otherPathsTo(const Mount& mount) const {
  std::vector<OtherPath> paths;
  const std::string_view root = mount.root == "/" ? std::string_view() : mount.root;
  for (std::size_t end = 0; end != std::string_view::npos;) {
    const std::string_view rest = root.substr(end);
    const auto found = byRoot_.find(keyOf(mount.device, root.substr(0, end)));
    for (const std::size_t i : found == byRoot_.end() ? std::vector<std::size_t>() : found->second) {
      const Mount& other = table_.mounts()[i];
      if (other.number != mount.number) paths.push_back({other.point + std::string(rest), !rest.empty()});
    }
    end = end == root.size() ? std::string_view::npos : std::min(root.find('/', end + 1), root.size());
  }
  return paths;
}

PathWalk MountOrigins::walkTo(const std::string& path, const PathWalk::LinkTrust& links) const {
  if (trust_) return PathWalk::into(path, links, trust_);
  return PathWalk::into(path, links, [this](std::uint64_t number) {
    const Mount* const mount = table_.find(number);
    return mount != nullptr && !isServedType(mount->type);
  });
}

MountOrigins::Origin MountOrigins::of(const ItemIdentity& shown) const {
  Origin origin;
  const Mount* const mount = table_.find(shown.mount);
  if (mount == nullptr) return origin;
  origin.isKnown = mount->root == "/" || isSubvolume(*mount, shown);
  for (const OtherPath& other : otherPathsTo(*mount)) {
    const PathWalk walk = walkTo(other.path, trustsNoLink);
    origin.isInDoubt = origin.isInDoubt || isDoubt(walk);
    // The table's paths may be out of date, and a later mount may hide them.
    if (walk.error() != 0 || walk.chain().back().number != shown.number) continue;
    origin.isKnown = origin.isKnown || other.isLonger;
    origin.chains.push_back(walk.chain());
  }
  return origin;
}

/// A layer that seems to lie in the overlay itself is a path of another mount namespace. False in doubt.
bool MountOrigins::addLayers(const Mount& mount, Alias& alias) const {
  for (const std::string& layer : mount.layers) {
    if (!layer.starts_with('/')) continue;
    const PathWalk walk = walkTo(layer, trustsEveryLink);
    if (isDoubt(walk)) return false;
    if (walk.error() != 0 || walk.chain().back().mount == mount.number) continue;
    alias.layers.push_back(walk.passed());
    alias.layers.back().push_back(walk.chain().back());
  }
  return true;
}

/// False in doubt. A mount hidden by another one shows nothing.
bool MountOrigins::addAlias(const Mount& mount, std::vector<Alias>& aliases) const {
  if (mount.layers.empty() && otherPathsTo(mount).empty()) return true;
  Alias alias;
  {
    const PathWalk walk = walkTo(mount.point, trustsNoLink);
    if (isDoubt(walk)) return false;
    if (walk.error() != 0 || walk.chain().back().mount != mount.number) return true;
    alias.point = walk.chain();
  }
  Origin origin = of(alias.point.back());
  alias.same = std::move(origin.chains);
  if (origin.isInDoubt || !addLayers(mount, alias)) return false;
  aliases.push_back(std::move(alias));
  return true;
}

std::optional<std::vector<MountOrigins::Alias>> MountOrigins::aliases() const {
  std::vector<Alias> aliases;
  if (!hasTable() && ::access(MountSource::kTable, F_OK) == 0) return std::nullopt;
  for (const Mount& mount : table_.mounts()) {
    if (!addAlias(mount, aliases)) return std::nullopt;
  }
  return aliases;
}

}  // namespace sorrel
