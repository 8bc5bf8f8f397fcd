#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

struct statx;

namespace sorrel {

/// Identifies an item by file system and inode, independent of the name by which it is reached.
struct ItemNumber {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;

  friend bool operator==(const ItemNumber&, const ItemNumber&) = default;
};

struct ItemNumberHash {
  std::size_t operator()(const ItemNumber& number) const noexcept {
    return static_cast<std::size_t>(number.inode * 0x9E3779B97F4A7C15U ^ number.device);
  }
};

/// The facts about an item that a removal needs; links are not followed and automounts are not triggered.
struct ItemIdentity {
  ItemNumber number;
  std::uint64_t mount = 0;  ///< number of the mount through which it was reached
  std::uint32_t mode = 0;   ///< type and permission bits, as in stat(2)
  std::uint32_t uid = 0;
  /// Another file system is mounted here, or would be mounted by the next step.
  bool isMountRoot = false;

  [[nodiscard]] bool isDirectory() const noexcept;
  [[nodiscard]] bool isLink() const noexcept;
  [[nodiscard]] bool isSticky() const noexcept;
  /// The same item, of the same type, reached through the same mount.
  [[nodiscard]] bool isSameAs(const ItemIdentity& other) const noexcept;
};

/// Identity of `name` in the open folder `folder`; nothing, with errno, if it can't be determined reliably.
/// If another file system is mounted on the item, that file system is not queried: it might never answer.
std::optional<ItemIdentity> identityOf(int folder, const char* name);
/// Identity of an open item.
std::optional<ItemIdentity> identityOf(int descriptor);
/// Identity by an answer of statx(2); nothing, with ENOTSUP, if the kernel did not report all of it: one that
/// cannot tell mounts apart gives nothing to rely on.
std::optional<ItemIdentity> identityIn(const struct statx& found);
/// ID of the mount that an open item was reached through. Queries no file system.
std::optional<std::uint64_t> mountOf(int descriptor);

}  // namespace sorrel
