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

/// The way from "/" down a path, one component at a time, each opened (O_PATH) in the folder before it, so
/// that what was looked at is what is used. The kernel follows no link here: a link is followed by hand, and
/// only if its owner is trusted. Links of /proc, whose text is not where they lead, never are. Works for
/// paths of any length.
class PathWalk {
 public:
  /// Says whether links of the user `owner` may be followed.
  using LinkTrust = std::function<bool(std::uint32_t owner)>;
  /// Says whether the mount of this number may be entered; nothing for every mount. Asked before the file
  /// system that is mounted is.
  using MountTrust = std::function<bool(std::uint64_t mount)>;
  static constexpr int kMostLinks = 40;
  /// A way without links that was gone before.
  struct KnownWay {
    std::string folder;
    std::vector<ItemIdentity> chain;
  };

  /// To the folder that holds the last component of `path`, which is not looked at. `path` must be absolute
  /// and normal (RemovalPolicy::isNormalPath).
  static PathWalk toParentOf(std::string_view path, const LinkTrust& trust, const MountTrust& mounts = {});
  /// The same for one of many paths. Where `known` leads to the same folder, and that still is the one it
  /// was, without a link on the way, one call of the system stands for all the steps; afterwards `known` is
  /// this way.
  static PathWalk toParentOf(std::string_view path, const LinkTrust& trust, KnownWay& known);
  /// To the item that `path` shows, through a link in the last component too. `path` must begin with "/".
  static PathWalk into(std::string_view path, const LinkTrust& trust, const MountTrust& mounts = {});

  /// The errno that ended the way, 0 if it was gone to its end.
  [[nodiscard]] int error() const noexcept { return error_; }
  /// True if it ended at a link that may not be followed, or a mount that may not be entered.
  [[nodiscard]] bool isRefused() const noexcept { return isRefused_; }
  /// The last item of the way, opened with O_PATH; a folder after toParentOf().
  [[nodiscard]] int end() const noexcept { return end_.get(); }
  [[nodiscard]] FileDescriptor takeEnd() noexcept { return std::move(end_); }
  /// The last component of the path after toParentOf(), "" after into().
  [[nodiscard]] const std::string& leaf() const noexcept { return leaf_; }
  /// The items from "/" down to the end, as they lie in the file system.
  [[nodiscard]] const std::vector<ItemIdentity>& chain() const noexcept { return chain_; }
  /// Everything that was passed, in order: also links, and folders that a link led away from again.
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
  std::string rest_;    // the components that are still ahead
  std::size_t at_ = 0;  // where the next one begins
  std::vector<ItemIdentity> chain_;
  std::vector<ItemIdentity> passed_;
  int links_ = 0;
  int error_ = 0;
  bool isRefused_ = false;
};

}  // namespace sorrel
