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

/// An item that was found under a path and that a policy lets go, held by descriptors; or why there is none.
/// Looks and removes nothing.
class RemovalTarget {
 public:
  /// The item at the absolute path `path`. With `expected` only if it is that item. The errors are those of
  /// removeItem().
  static RemovalTarget find(const std::string& path, const RemovalPolicy& policy,
                            const std::optional<ItemNumber>& expected = std::nullopt);
  /// The same for one of many paths of the user; `known` serves them all.
  static RemovalTarget find(const std::string& path, const RemovalPolicy& policy, PathWalk::KnownWay& known);

  /// 0 if the item may go, else an errno.
  [[nodiscard]] int error() const noexcept { return error_; }
  /// True if the policy said no.
  [[nodiscard]] bool isRefused() const noexcept { return isRefused_; }
  /// The owner of an item that was refused because neither root nor the caller owns it.
  [[nodiscard]] std::optional<std::uint32_t> stranger() const noexcept { return stranger_; }
  /// True if there is no such item, in a place where the policy would let one go; `error` is ENOENT.
  [[nodiscard]] bool isAbsent() const noexcept { return isAbsent_; }

  // Of an item that may go:
  [[nodiscard]] const ItemIdentity& identity() const noexcept { return identity_; }
  /// The item itself, opened with O_PATH: as long as it is, its number can't become that of another.
  [[nodiscard]] int item() const noexcept { return item_.get(); }
  /// The folder that holds it, opened with O_PATH, and its name there.
  [[nodiscard]] int folder() const noexcept { return walk_.end(); }
  [[nodiscard]] FileDescriptor takeFolder() noexcept { return walk_.takeEnd(); }
  [[nodiscard]] const std::string& leaf() const noexcept { return walk_.leaf(); }
  /// The items from "/" down to the folder.
  [[nodiscard]] const std::vector<ItemIdentity>& chain() const noexcept { return walk_.chain(); }
  /// Whether a link was followed on the way to the folder.
  [[nodiscard]] bool isBehindLink() const noexcept { return walk_.passed().size() != chain().size(); }

  /// Whether the item still stands under its name. To be asked right before it is taken away.
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
