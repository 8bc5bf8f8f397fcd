#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "SorrelFramework/Removal/ItemIdentity.hpp"
#include "SorrelFramework/Removal/PathWalk.hpp"
#include "SorrelFramework/Removal/RemovalPolicy.hpp"

namespace sorrel {

/// An item that was found under a path and that the policy allows to remove, held by descriptors; or the
/// reason why not. Removes nothing.
class RemovalTarget {
 public:
  /// The item at the absolute path `path`. With `expected`, only if it is that item. The errors are those of
  /// removeItem().
  static RemovalTarget find(const std::string& path, const RemovalPolicy& policy,
                            const std::optional<ItemNumber>& expected = std::nullopt);
  /// The same for one of many paths of the user; `known` is passed to each call.
  static RemovalTarget find(const std::string& path, const RemovalPolicy& policy, PathWalk::KnownWay& known);

  /// 0 if the item may be removed, else an errno.
  [[nodiscard]] int error() const noexcept { return error_; }
  /// True if the policy refused.
  [[nodiscard]] bool isRefused() const noexcept { return isRefused_; }
  /// The owner of an item that was refused because neither root nor the caller owns it.
  [[nodiscard]] std::optional<std::uint32_t> stranger() const noexcept { return stranger_; }
  /// True if there is no such item, at a path where the policy would allow a removal; `error` is ENOENT.
  [[nodiscard]] bool isAbsent() const noexcept { return isAbsent_; }

  // For an item that may be removed:
  [[nodiscard]] const ItemIdentity& identity() const noexcept { return identity_; }
  /// The item itself, opened with O_PATH: while it is open, its inode number can't be reused.
  [[nodiscard]] int item() const noexcept { return item_.get(); }
  /// The parent folder, opened with O_PATH, and the item's name in it.
  [[nodiscard]] int folder() const noexcept { return walk_.end(); }
  [[nodiscard]] FileDescriptor takeFolder() noexcept { return walk_.takeEnd(); }
  [[nodiscard]] const std::string& leaf() const noexcept { return walk_.leaf(); }
  /// The items from "/" down to the folder.
  [[nodiscard]] const std::vector<ItemIdentity>& chain() const noexcept { return walk_.chain(); }
  /// True if a link was followed on the path to the folder.
  [[nodiscard]] bool isBehindLink() const noexcept { return walk_.passed().size() != chain().size(); }

  /// True if the name still refers to the item. To be checked right before the removal.
  [[nodiscard]] bool isStillThere() const;

 private:
  explicit RemovalTarget(PathWalk walk) : walk_(std::move(walk)) {}
  static RemovalTarget checked(PathWalk walk, const RemovalPolicy& policy,
                               const std::optional<ItemNumber>& expected);
  static RemovalTarget refused(int error);
  void check(const RemovalPolicy& policy, const std::optional<ItemNumber>& expected);
  void checkItem(const RemovalPolicy& policy, const std::optional<ItemNumber>& expected);
  void fail(int error) noexcept { error_ = error; }
  void refuse(int error) noexcept;

  PathWalk walk_;
  FileDescriptor item_;
  ItemIdentity identity_;
  int error_ = 0;
  bool isRefused_ = false;
  bool isAbsent_ = false;
  std::optional<std::uint32_t> stranger_;
};

}  // namespace sorrel
