#include "SorrelFramework/Removal/PathWalk.hpp"

#include <fcntl.h>
#include <linux/magic.h>
#include <linux/openat2.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <optional>
#include <utility>

#include "SorrelFramework/Platform/Files/OpenResolving.hpp"

namespace sorrel {
namespace {

constexpr int kPathFlags = O_PATH | O_NOFOLLOW | O_CLOEXEC;

/// Opens one component; a link is opened itself.
FileDescriptor openComponent(int folder, const char* name) {
  constexpr std::uint64_t resolve = RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS | RESOLVE_BENEATH;
  if (auto item = openResolving(folder, name, kPathFlags, resolve)) return std::move(*item);
  return FileDescriptor(::openat(folder, name, kPathFlags));
}

/// The target text of an open link; "" if it can't be read completely.
std::string textOfLink(int link) {
  std::array<char, PATH_MAX> text{};
  const ssize_t length = ::readlinkat(link, "", text.data(), text.size());
  if (length <= 0 || static_cast<std::size_t>(length) >= text.size()) return {};
  return {text.data(), static_cast<std::size_t>(length)};
}

bool isInProc(int item) {
  struct statfs system {};
  return ::fstatfs(item, &system) != 0 || system.f_type == PROC_SUPER_MAGIC;
}

}  // namespace

PathWalk PathWalk::toParentOf(std::string_view path, const LinkTrust& trust, const MountTrust& mounts) {
  PathWalk walk(trust, mounts);
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) {
    walk.fail(EINVAL);
    return walk;
  }
  walk.leaf_ = path.substr(slash + 1);
  walk.run(std::string(path.substr(0, slash)));
  if (walk.error_ == 0 && !walk.chain_.back().isDirectory()) walk.fail(ENOTDIR);
  return walk;
}

PathWalk PathWalk::toParentOf(std::string_view path, const LinkTrust& trust, KnownWay& known) {
  const std::string_view folder = path.substr(0, std::min(path.rfind('/'), path.size()));
  if (!known.chain.empty() && known.folder == folder) {
    PathWalk walk(trust, {});
    if (walk.goKnownWay(known)) {
      walk.leaf_ = path.substr(folder.size() + 1);
      return walk;
    }
  }
  PathWalk walk = toParentOf(path, trust, MountTrust());
  known = {};
  if (walk.error_ == 0 && walk.links_ == 0) known = {std::string(folder), walk.chain_};
  return walk;
}

/// Checking the folder's identity is enough: if an ancestor had been swapped, this path would lead to another
/// folder.
bool PathWalk::goKnownWay(const KnownWay& known) {
  constexpr std::uint64_t resolve = RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
  auto folder = openResolving(AT_FDCWD, known.folder.c_str(), kPathFlags | O_DIRECTORY, resolve);
  if (!folder || !folder->isOpen()) return false;
  const auto identity = identityOf(folder->get());
  if (!identity || !identity->isSameAs(known.chain.back())) return false;
  chain_ = passed_ = known.chain;
  end_ = std::move(*folder);
  return true;
}

PathWalk PathWalk::into(std::string_view path, const LinkTrust& trust, const MountTrust& mounts) {
  PathWalk walk(trust, mounts);
  walk.run(std::string(path));
  return walk;
}

void PathWalk::run(std::string path) {
  if (!goToRoot()) return;
  rest_ = std::move(path);
  while (at_ < rest_.size()) {
    const std::size_t slash = rest_.find('/', at_);
    const std::string name = rest_.substr(at_, slash == std::string::npos ? slash : slash - at_);
    at_ = slash == std::string::npos ? rest_.size() : slash + 1;
    if (!name.empty() && name != "." && !step(name)) return;
  }
}

bool PathWalk::goToRoot() {
  end_ = FileDescriptor(::open("/", kPathFlags | O_DIRECTORY));
  const auto root = identityBehind(end_);
  if (!root) return fail(errno);
  chain_.assign(1, *root);
  passed_.push_back(*root);
  return true;
}

bool PathWalk::step(const std::string& name) {
  if (!chain_.back().isDirectory()) return fail(ENOTDIR);
  if (name == "..") return goUp();
  FileDescriptor item = openComponent(end_.get(), name.c_str());
  const auto identity = identityBehind(item);
  if (!identity) return fail(errno);
  passed_.push_back(*identity);
  if (identity->isLink()) return follow(item, *identity);
  chain_.push_back(*identity);
  end_ = std::move(item);
  return true;
}

/// ".." occurs only in link texts. It must lead back to the folder that the walk came through.
bool PathWalk::goUp() {
  if (chain_.size() == 1) return true;
  FileDescriptor above(::openat(end_.get(), "..", kPathFlags | O_DIRECTORY));
  const auto identity = above.isOpen() ? identityOf(above.get()) : std::nullopt;
  if (!identity) return fail(errno);
  chain_.pop_back();
  if (!identity->isSameAs(chain_.back())) return fail(ESTALE);
  passed_.push_back(*identity);
  end_ = std::move(above);
  return true;
}

bool PathWalk::follow(const FileDescriptor& link, const ItemIdentity& identity) {
  if (++links_ > kMostLinks) return fail(ELOOP);
  if (!trust_(identity.uid) || isInProc(link.get())) {
    isRefused_ = true;
    return fail(ELOOP);
  }
  std::string text = textOfLink(link.get());
  if (text.empty()) return fail(ENOENT);
  if (text.front() == '/' && !goToRoot()) return false;
  text += '/';
  rest_ = std::move(text.append(rest_, at_));
  at_ = 0;
  return true;
}

/// Nothing, with errno, if the item can't be opened or its mount may not be entered.
std::optional<ItemIdentity> PathWalk::identityBehind(const FileDescriptor& item) {
  if (!item.isOpen() || !mayEnterMountOf(item.get())) return std::nullopt;
  return identityOf(item.get());
}

bool PathWalk::mayEnterMountOf(int item) {
  if (!mounts_) return true;
  const std::optional<std::uint64_t> mount = mountOf(item);
  if (!mount) return false;
  if (!chain_.empty() && chain_.back().mount == *mount) return true;
  if (mounts_(*mount)) return true;
  isRefused_ = true;
  errno = EPERM;
  return false;
}

bool PathWalk::fail(int error) {
  error_ = error;
  end_.reset();
  return false;
}

}  // namespace sorrel
