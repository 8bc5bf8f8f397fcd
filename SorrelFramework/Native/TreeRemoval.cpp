#include "SorrelFramework/Native/TreeRemoval.hpp"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string_view>
#include <utility>

#include "SorrelFramework/Native/FolderRemoval.hpp"
#include "SorrelFramework/Native/PathWalk.hpp"
#include "SorrelFramework/Platform/FileDescriptor.hpp"

namespace sorrel {
namespace {

RemovalResult failed(int error) { return {error, false, false, 0}; }
RemovalResult refused(int error) { return {error, true, false, 0}; }

/// Names of trash folders at the top of a file system: of freedesktop.org desktops, and of macOS.
bool isTrashName(std::string_view name) {
  constexpr std::string_view ofUser = ".Trash-";
  if (name == ".Trash" || name == ".Trashes") return true;
  if (!name.starts_with(ofUser)) return false;
  return std::ranges::all_of(name.substr(ofUser.size()), [](char c) { return c >= '0' && c <= '9'; });
}

RemovalResult absent(const PathWalk& walk, const RemovalPolicy& policy) {
  if (!policy.trustsWay(walk.passed(), nullptr)) return refused(EPERM);
  return {ENOENT, false, true, 0};
}

/// The errno with which the item is refused, 0 if it may be removed.
int refusalOf(const ItemIdentity& item, const PathWalk& walk, const RemovalPolicy& policy,
              const std::optional<ItemNumber>& expected) {
  if (!policy.trustsWay(walk.passed(), &item)) return EPERM;
  if (item.isMountRoot) return EBUSY;
  if (policy.protects(item.number)) return EPERM;
  if (walk.chain().back().isMountRoot && isTrashName(walk.leaf())) return EPERM;
  return expected && *expected != item.number ? ESTALE : 0;
}

RemovalResult removeIf(const std::string& path, const RemovalPolicy& policy,
                       const std::optional<ItemNumber>& expected) {
  if (!RemovalPolicy::isNormalPath(path)) return refused(EINVAL);
  PathWalk walk =
      PathWalk::toParentOf(path, [&policy](std::uint32_t owner) { return policy.trustsLinkOf(owner); });
  if (walk.error() != 0) return {walk.error(), walk.isRefused(), false, 0};
  if (policy.protectsWhatLiesIn(walk.chain())) return refused(EPERM);

  // Held until the end, so that its number can't become that of another item meanwhile.
  const FileDescriptor item(::openat(walk.end(), walk.leaf().c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!item.isOpen()) return errno == ENOENT ? absent(walk, policy) : failed(errno);
  const auto identity = identityOf(item.get());
  if (!identity) return failed(errno);
  if (const int error = refusalOf(*identity, walk, policy, expected)) return refused(error);

  FolderRemoval removal(policy);
  removal.run(walk.takeEnd(), walk.leaf(), *identity);
  return {removal.error(), removal.isRefused(), false, removal.removedEntries()};
}

}  // namespace

RemovalResult removeItem(const std::string& path, const RemovalPolicy& policy) {
  return removeIf(path, policy, std::nullopt);
}

RemovalResult removeExpectedItem(const std::string& path, const ItemNumber& expected,
                                 const RemovalPolicy& policy) {
  return removeIf(path, policy, expected);
}

}  // namespace sorrel
