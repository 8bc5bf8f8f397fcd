#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "SorrelFramework/Removal/ItemIdentity.hpp"

namespace sorrel {

/// Walks from "/" down a path, one component at a time, each opened (O_PATH) in the folder before it, so that
/// the checked item is the used one. The kernel follows no link here: a link is followed by hand, and only if
/// its owner is trusted. Magic links of /proc, whose text does not say where they lead, are never followed.
/// Works for paths of any length.
class PathWalk {
 public:
  /// True if links owned by `owner` may be followed.
  using LinkTrust = std::function<bool(std::uint32_t owner)>;
  /// True if the mount with this ID may be entered; an empty function allows every mount. Called before the
  /// mounted file system is queried.
  using MountTrust = std::function<bool(std::uint64_t mount)>;
  static constexpr int kMostLinks = 40;
  /// A path without links that was walked before.
  struct KnownWay {
    std::string folder;
    std::vector<ItemIdentity> chain;
  };

  /// Walks to the folder that holds the last component of `path`; the last component itself is not looked up.
  /// `path` must be absolute and normal (RemovalPolicy::isNormalPath).
  static PathWalk toParentOf(std::string_view path, const LinkTrust& trust, const MountTrust& mounts = {});
  /// The same for one of many paths. If `known` names the same folder, which still has the same identity and
  /// is reached without a link, one system call replaces all steps; afterwards `known` describes this path.
  static PathWalk toParentOf(std::string_view path, const LinkTrust& trust, KnownWay& known);
  /// Walks to the item that `path` leads to, following a link in the last component too. `path` must begin
  /// with "/".
  static PathWalk into(std::string_view path, const LinkTrust& trust, const MountTrust& mounts = {});

  /// The errno that ended the walk, 0 if it reached its end.
  [[nodiscard]] int error() const noexcept { return error_; }
  /// True if the walk ended at a link that may not be followed, or a mount that may not be entered.
  [[nodiscard]] bool isRefused() const noexcept { return isRefused_; }
  /// The last item of the walk, opened with O_PATH; a folder after toParentOf().
  [[nodiscard]] int end() const noexcept { return end_.get(); }
  [[nodiscard]] FileDescriptor takeEnd() noexcept { return std::move(end_); }
  /// The last component of the path after toParentOf(), "" after into().
  [[nodiscard]] const std::string& leaf() const noexcept { return leaf_; }
  /// The items from "/" down to the end, in the physical hierarchy without links.
  [[nodiscard]] const std::vector<ItemIdentity>& chain() const noexcept { return chain_; }
  /// Every visited item, in order: also links, and folders that a link led away from again.
  [[nodiscard]] const std::vector<ItemIdentity>& passed() const noexcept { return passed_; }

 private:
  PathWalk(const LinkTrust& trust, const MountTrust& mounts) : trust_(trust), mounts_(mounts) {}
  void run(std::string path);
  bool goKnownWay(const KnownWay& known);
  bool step(const std::string& name);
  bool goToRoot();
  bool goUp();
  bool follow(const FileDescriptor& link, const ItemIdentity& identity);
  bool mayEnterMountOf(int item);
  std::optional<ItemIdentity> identityBehind(const FileDescriptor& item);
  bool fail(int error);

  LinkTrust trust_;
  MountTrust mounts_;
  FileDescriptor end_;
  std::string leaf_;
  std::string rest_;    // the remaining components
  std::size_t at_ = 0;  // start of the next component
  std::vector<ItemIdentity> chain_;
  std::vector<ItemIdentity> passed_;
  int links_ = 0;
  int error_ = 0;
  bool isRefused_ = false;
};

}  // namespace sorrel
