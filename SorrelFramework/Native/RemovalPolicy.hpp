#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace sorrel {

/// What must never be removed, whoever asks and by whatever name. Places are known by device and inode of the
/// opened object, so an alias (a link, a bind mount, another spelling) changes nothing. Two classes:
///
/// - *self and ancestors*: the place and everything above it may not be removed, what lies in it may: "/",
/// /home, each
///   home of the password file, /root, /var, /opt, /srv, /mnt, /media, mount roots, trash roots, the current
///   folder.
/// - *whole subtree*: nothing in it may be removed: /usr, /etc, /boot, /bin, /lib*, /sbin, /proc, /sys, /dev,
/// /run,
///   /var/lib. The deepest listed place on the way decides; /run/media and /usr/local are exceptions.
class RemovalPolicy {
 public:
  /// Who removes. `User`: the process's own rights; links above the item are followed if root or the user
  /// owns them. `Helper`: as root for the user `caller`; such links are followed only if root owns them, the
  /// whole-subtree class holds, every component must belong to root or the caller (a sticky folder aside),
  /// and so must the item.
  enum class Actor { User, Helper };

  /// Looks all listed places up at this moment. A user that is root gets the whole-subtree class too.
  static RemovalPolicy forUser();
  static RemovalPolicy forHelper(std::uint32_t caller);

  ~RemovalPolicy();
  RemovalPolicy(RemovalPolicy&&) noexcept;
  RemovalPolicy& operator=(RemovalPolicy&&) noexcept;

  /// Adds a place to a class; one that does not exist is passed over. For an administrator's list, and for
  /// tests.
  void protectSelfAndAncestors(const std::string& path);
  void protectSubtree(const std::string& path);
  /// Makes a place below a protected subtree removable again.
  void allowSubtree(const std::string& path);

  /// An absolute, normal path of bytes: begins with "/", no empty, "." or ".." component, no NUL, not "/"
  /// itself, no slash at its end, at most 1 MiB.
  [[nodiscard]] static bool isNormalPath(std::string_view path);

  struct Lists;
  [[nodiscard]] const Lists& lists() const noexcept { return *lists_; }
  [[nodiscard]] Actor actor() const noexcept;
  [[nodiscard]] std::uint32_t caller() const noexcept;

 private:
  explicit RemovalPolicy(std::unique_ptr<Lists> lists);

  std::unique_ptr<Lists> lists_;
};

}  // namespace sorrel
