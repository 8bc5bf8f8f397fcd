#include "SorrelFramework/Native/RemovalTarget.hpp"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

namespace sorrel {
namespace {

/// Names of trash folders at the top of a file system: of freedesktop.org desktops, and of macOS.
bool isTrashName(std::string_view name) {
  constexpr std::string_view ofUser = ".Trash-";
  if (name == ".Trash" || name == ".Trashes") return true;
  if (!name.starts_with(ofUser)) return false;
  return std::ranges::all_of(name.substr(ofUser.size()), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

RemovalTarget RemovalTarget::find(const std::string& path, const RemovalPolicy& policy,
                                  const std::optional<ItemNumber>& expected) {
  // Of a path that is not normal, nothing is looked at, nor while a protected place is unknown.
  const int error = RemovalPolicy::isNormalPath(path) ? policy.error() : EINVAL;
  const auto trust = [&policy](std::uint32_t owner) { return policy.trustsLinkOf(owner); };
  RemovalTarget target(PathWalk::toParentOf(error == 0 ? path : std::string(), trust, policy.mounts()));
  if (error == 0) {
    target.check(policy, expected);
  } else {
    target.refuse(error);
  }
  return target;
}

void RemovalTarget::check(const RemovalPolicy& policy, const std::optional<ItemNumber>& expected) {
  if (walk_.isRefused()) return refuse(policy.trustsWay(walk_.passed(), nullptr) ? walk_.error() : EPERM);
  if (policy.protectsWhatLiesIn(walk_.chain())) return refuse(EPERM);
  if (walk_.error() == 0) {
    item_ = FileDescriptor(::openat(walk_.end(), walk_.leaf().c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (item_.isOpen()) return checkItem(policy, expected);
  }
  const int error = walk_.error() != 0 ? walk_.error() : errno;
  // What stands in the way of others is not told either.
  if (!policy.trustsWay(walk_.passed(), nullptr)) return refuse(EPERM);
  isAbsent_ = error == ENOENT;
  fail(error);
}

void RemovalTarget::checkItem(const RemovalPolicy& policy, const std::optional<ItemNumber>& expected) {
  const std::optional<std::uint64_t> mount = mountOf(item_.get());
  if (!mount) return fail(errno);
  // Before anything else is asked: a file system that is mounted there may never answer.
  if (*mount != walk_.chain().back().mount) return refuse(EBUSY);
  const auto identity = identityOf(item_.get());
  if (!identity) return fail(errno);
  identity_ = *identity;
  if (!policy.trustsWay(walk_.passed(), &identity_)) return refuse(EPERM);
  if (identity_.isMountRoot) return refuse(EBUSY);
  if (policy.protects(identity_.number)) return refuse(EPERM);
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
