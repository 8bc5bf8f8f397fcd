#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/Removal/ItemIdentity.hpp"
#include "SorrelFramework/Removal/PathWalk.hpp"

namespace sorrel {

/// What must never be removed, independent of the caller and of the name used. Protected items are identified
/// by device and inode of the opened object, so an alias (a link, a bind mount, another spelling) changes
/// nothing. Two classes:
///
/// - *self and ancestors*: the item and everything above it may not be removed, its contents may: "/" and
///   every entry of it, each home of the password file and its trash folder, /var, /var/tmp, /var/log,
///   /var/spool, /var/cache, /var/mail, the current folder. Mount roots and the trash folders in them belong
///   to this class too; they are recognised when they are met.
/// - *whole subtree*: the same, and its contents may not be removed either: /usr, /etc, /boot, /efi, /bin,
///   /lib*, /sbin, /proc, /sys, /dev, /run, /nix, /gnu, /sysroot, /ostree, /snap, /var/lib, /var/spool/cron,
///   and /root for a helper. /run/media, /usr/local, /var and /home are exceptions: their contents may go,
///   they themselves may not.
///
/// The content mounted at a listed path is listed under its other paths too: the folder that a bind mount
/// shows there, like the path itself; the layers of an overlay, as a whole subtree; and the ancestors of
/// either.
///
/// The deepest ancestor that is listed as a subtree or an exception decides whether an item lies in a
/// subtree. An entry of the first class never lifts that: /usr/sbin is a daemon's home.
///
/// A policy answers questions and removes nothing. Several threads may query it at once while no thread
/// changes it.
class RemovalPolicy {
 public:
  /// The process that removes. `User`: with the process's own permissions; links above the item are followed
  /// if root or the user owns them. `Helper`: as root for the user `caller`; such links are followed only if
  /// root owns them, the whole-subtree class applies, and every component, the item and everything below it
  /// must belong to root or the caller. A caller whose home is in no user database may remove nothing.
  enum class Actor { User, Helper };
  using MountTrust = PathWalk::MountTrust;

  /// Looks up all listed paths now. For a user that is root the whole-subtree class applies too. The helper
  /// enters only the mounts that `mounts` trusts, both here and on the path to an item; the policy keeps
  /// `mounts`.
  static RemovalPolicy forUser();
  static RemovalPolicy forHelper(std::uint32_t caller, MountTrust mounts = {});

  ~RemovalPolicy();
  RemovalPolicy(RemovalPolicy&&) noexcept;
  RemovalPolicy& operator=(RemovalPolicy&&) noexcept;

  /// Adds a path to a class; a missing one is skipped. If it is out of reach (access denied, or a volume that
  /// does not answer), the reachable part of the path joins the first class. For an administrator's list, for
  /// paths that only the application knows, and for tests.
  void protectSelfAndAncestors(const std::string& path);
  void protectSubtree(const std::string& path);
  /// Makes the contents of a folder below a protected subtree removable again, but not the folder itself. A
  /// folder that is also listed as a subtree stays protected.
  void allowSubtree(const std::string& path);

  /// An absolute, normal path of bytes: begins with "/", no empty, "." or ".." component, no NUL, not "/"
  /// itself, no slash at its end, at most 1 MiB.
  [[nodiscard]] static bool isNormalPath(std::string_view path);

  /// Lets a user's removals add missing owner permissions to the user's own folders (default: off). No effect
  /// for a helper.
  void openOwnFolders() noexcept { opensOwnFolders_ = actor_ == Actor::User; }
  [[nodiscard]] bool opensOwnFolders() const noexcept { return opensOwnFolders_; }

  /// Records that paths which should have been added are unknown, because of `error`.
  void addUnknown(int error);
  /// The errno of the first look-up that failed without proving that the path is absent (tellsOfNoPlace);
  /// nothing may be removed then, since any item might be that path. 0 if all paths are known.
  [[nodiscard]] int error() const noexcept;

  [[nodiscard]] Actor actor() const noexcept { return actor_; }
  [[nodiscard]] std::uint32_t caller() const noexcept { return caller_; }

  /// Which mounts may be entered on the path to an item; empty for all of them.
  [[nodiscard]] const MountTrust& mounts() const noexcept { return mounts_; }
  /// True if a link owned by `owner` may be followed on the path to an item.
  [[nodiscard]] bool trustsLinkOf(std::uint32_t owner) const noexcept;
  /// True if items owned by `owner` may be removed. Always true for a user, whose permissions decide.
  [[nodiscard]] bool trustsItemOf(std::uint32_t owner) const noexcept;
  /// True if every item visited on the path belongs to root or the caller: the owner of a folder decides
  /// where a path through it leads. Always true for a user.
  [[nodiscard]] bool trustsWay(const std::vector<ItemIdentity>& passed) const;
  /// True if no entry of this folder may be removed: it is "/".
  [[nodiscard]] bool protectsEntriesOf(const ItemNumber& folder) const;
  /// True if the item is listed in any class, or is an ancestor of a listed one.
  [[nodiscard]] bool protects(const ItemNumber& item) const;
  /// True if the contents of the last folder of `chain`, which begins with "/", lie in a protected subtree.
  /// Where the chain enters a mount that shows a folder which also lies elsewhere, the ancestors of that
  /// other location count as well; if they can't be determined, a helper's policy treats the folder as
  /// protected.
  [[nodiscard]] bool protectsWhatLiesIn(const std::vector<ItemIdentity>& chain) const;

 private:
  struct Lists;
  RemovalPolicy(Actor actor, std::uint32_t caller, MountTrust mounts);
  void listBuiltIn(bool withSubtrees);
  void listHomes();

  Actor actor_;
  std::uint32_t caller_;
  MountTrust mounts_;
  bool opensOwnFolders_ = false;
  std::unique_ptr<Lists> lists_;
};

}  // namespace sorrel
