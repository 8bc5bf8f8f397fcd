#include "SorrelFramework/Removal/RemovalTarget.hpp"

#include <fcntl.h>
#include <linux/openat2.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "SorrelFramework/Platform/Files/OpenResolving.hpp"

namespace sorrel {
namespace {

/// Names of trash folders at the root of a file system: freedesktop.org's and those of macOS.
bool isTrashName(std::string_view name) {
  constexpr std::string_view ofUser = ".Trash-";
  if (name == ".Trash" || name == ".Trashes") return true;
  if (!name.starts_with(ofUser)) return false;
  return std::ranges::all_of(name.substr(ofUser.size()), [](char c) { return c >= '0' && c <= '9'; });
}

/// Refuses before any look-up: for a path that is not normal, or while a protected path is unknown.
int errorBeforeLooking(const std::string& path, const RemovalPolicy& policy) {
  return RemovalPolicy::isNormalPath(path) ? policy.error() : EINVAL;
}

/// Opens `name` in a folder of the mount `mount`; a link is opened itself. EXDEV if something is mounted
/// there; that file system is not queried, as it may never answer.
FileDescriptor openOnMount(int folder, const char* name, std::uint64_t mount) {
  constexpr int flags = O_PATH | O_NOFOLLOW | O_CLOEXEC;
  constexpr std::uint64_t resolve = RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS | RESOLVE_BENEATH;
  if (auto item = openResolving(folder, name, flags, resolve)) return std::move(*item);
  FileDescriptor item(::openat(folder, name, flags));
  if (!item.isOpen()) return item;
  const std::optional<std::uint64_t> found = mountOf(item.get());
  if (found == mount) return item;
  if (found) errno = EXDEV;
  return {};
}

PathWalk::LinkTrust linkTrustOf(const RemovalPolicy& policy) {
  return [&policy](std::uint32_t owner) { return policy.trustsLinkOf(owner); };
}

}  // namespace

RemovalTarget RemovalTarget::find(const std::string& path, const RemovalPolicy& policy,
                                  const std::optional<ItemNumber>& expected) {
  if (const int error = errorBeforeLooking(path, policy); error != 0) return refused(error);
  return checked(PathWalk::toParentOf(path, linkTrustOf(policy), policy.mounts()), policy, expected);
}

RemovalTarget RemovalTarget::find(const std::string& path, const RemovalPolicy& policy,
                                  PathWalk::KnownWay& known) {
  if (policy.mounts()) return find(path, policy);
  if (const int error = errorBeforeLooking(path, policy); error != 0) return refused(error);
  return checked(PathWalk::toParentOf(path, linkTrustOf(policy), known), policy, std::nullopt);
}

RemovalTarget RemovalTarget::checked(PathWalk walk, const RemovalPolicy& policy,
                                     const std::optional<ItemNumber>& expected) {
  RemovalTarget target(std::move(walk));
  target.check(policy, expected);
  return target;
}

RemovalTarget RemovalTarget::refused(int error) {
  RemovalTarget target(PathWalk::toParentOf({}, {}));
  target.refuse(error);
  return target;
}

void RemovalTarget::check(const RemovalPolicy& policy, const std::optional<ItemNumber>& expected) {
  if (walk_.isRefused()) return refuse(policy.trustsWay(walk_.passed()) ? walk_.error() : EPERM);
  if (policy.protectsWhatLiesIn(walk_.chain())) return refuse(EPERM);
  if (walk_.error() == 0) {
    item_ = openOnMount(walk_.end(), walk_.leaf().c_str(), walk_.chain().back().mount);
    if (item_.isOpen()) return checkItem(policy, expected);
    if (errno == EXDEV) return refuse(EBUSY);
  }
  const int error = walk_.error() != 0 ? walk_.error() : errno;
  // The error in another user's folder is not reported: it would reveal what exists there.
  if (!policy.trustsWay(walk_.passed())) return refuse(EPERM);
  isAbsent_ = error == ENOENT;
  fail(error);
}

void RemovalTarget::checkItem(const RemovalPolicy& policy, const std::optional<ItemNumber>& expected) {
  const auto identity = identityOf(item_.get());
  if (!identity) return fail(errno);
  identity_ = *identity;
  if (identity_.mount != walk_.chain().back().mount) return refuse(EBUSY);
  if (!policy.trustsWay(walk_.passed())) return refuse(EPERM);
  if (!policy.trustsItemOf(identity_.uid)) {
    stranger_ = identity_.uid;
    return refuse(EPERM);
  }
  if (identity_.isMountRoot) return refuse(EBUSY);
  if (policy.protects(identity_.number)) return refuse(EPERM);
  if (policy.protectsEntriesOf(walk_.chain().back().number)) return refuse(EPERM);
  if (walk_.chain().back().isMountRoot && isTrashName(walk_.leaf())) return refuse(EPERM);
  if (expected && *expected != identity_.number) return refuse(ESTALE);
}

void RemovalTarget::refuse(int error) noexcept {
  error_ = error;
  isRefused_ = true;
}

bool RemovalTarget::isStillThere() const {
  const auto now = identityOf(walk_.end(), walk_.leaf().c_str());
  return now && now->isSameAs(identity_);
}

}  // namespace sorrel
