#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/Removal/ItemIdentity.hpp"
#include "SorrelFramework/Removal/PathWalk.hpp"

namespace sorrel {

/// What must never be removed, whoever asks and by whatever name. Places are known by device and inode of the
/// opened object, so an alias (a link, a bind mount, another spelling) changes nothing. Two classes:
///
/// - *self and ancestors*: the place and everything above it may not be removed, what lies in it may: "/" and
///   every entry of it, each home of the password file and its trash folder, /var, /var/tmp, /var/log,
///   /var/spool, /var/cache, /var/mail, the current folder. Mount roots and the trash folders in them belong
///   to this class too; they are known when they are met.
/// - *whole subtree*: the same, and nothing in it may be removed either: /usr, /etc, /boot, /efi, /bin,
/// /lib*,
///   /sbin, /proc, /sys, /dev, /run, /nix, /gnu, /sysroot, /ostree, /snap, /var/lib, /var/spool/cron, and
///   /root for a helper. /run/media, /usr/local, /var and /home are exceptions: what lies in them may go,
///   they themselves may not.
///
/// What is mounted at a place counts under its other paths too: the folder that a bind mount shows there, as
/// the place itself; the layers of an overlay, as a whole subtree; and what lies above either.
///
/// Whether a place counts as lying in a subtree is decided by the deepest place above it that is listed as a
/// subtree or an exception. A place of the first class never lifts that: /usr/sbin is a daemon's home.
///
/// A policy answers questions and removes nothing. It may be asked on several threads at once while nobody
/// changes it.
class RemovalPolicy {
 public:
  /// Who removes. `User`: the process's own rights; links above the item are followed if root or the user
  /// owns them. `Helper`: as root for the user `caller`; such links are followed only if root owns them, the
  /// whole-subtree class holds, every component must belong to root or the caller, and so must the item and
  /// all that lies in it. A caller whose home no user database knows may remove nothing.
  enum class Actor { User, Helper };
  using MountTrust = PathWalk::MountTrust;

  /// Looks all listed places up at this moment. A user that is root gets the whole-subtree class too. The
  /// helper enters only the mounts that `mounts` trusts, for that and on the way to an item; it is kept.
  static RemovalPolicy forUser();
  static RemovalPolicy forHelper(std::uint32_t caller, MountTrust mounts = {});

  ~RemovalPolicy();
  RemovalPolicy(RemovalPolicy&&) noexcept;
  RemovalPolicy& operator=(RemovalPolicy&&) noexcept;

  /// Adds a place to a class; one that does not exist is passed over. Of one that is out of reach, closed to
  /// this process or on a volume that does not answer, the way there joins the first class as far as it goes.
  /// For an administrator's list, for places that only the application knows, and for tests.
  void protectSelfAndAncestors(const std::string& path);
  void protectSubtree(const std::string& path);
  /// Makes what lies in a place below a protected subtree removable again, though not the place itself. A
  /// place that is listed as a subtree too stays one.
  void allowSubtree(const std::string& path);

  /// An absolute, normal path of bytes: begins with "/", no empty, "." or ".." component, no NUL, not "/"
  /// itself, no slash at its end, at most 1 MiB.
  [[nodiscard]] static bool isNormalPath(std::string_view path);

  /// A user's removals give the user's own folders the owner's rights that they lack (default: they do not).
  /// Never those of a helper.
  void openOwnFolders() noexcept { opensOwnFolders_ = actor_ == Actor::User; }
  [[nodiscard]] bool opensOwnFolders() const noexcept { return opensOwnFolders_; }

  /// Tells that places which were to be added are not known, because of `error`.
  void addUnknown(int error);
  /// The errno of the first look-up of a place that failed without telling whether there is such a place
  /// (tellsOfNoPlace); nothing may be removed then, since it might be that place. 0 if all are known.
  [[nodiscard]] int error() const noexcept;

  [[nodiscard]] Actor actor() const noexcept { return actor_; }
  [[nodiscard]] std::uint32_t caller() const noexcept { return caller_; }

  /// Which mounts may be entered on the way to an item; nothing for all of them.
  [[nodiscard]] const MountTrust& mounts() const noexcept { return mounts_; }
  /// Whether a link of the user `owner` may be followed on the way to an item.
  [[nodiscard]] bool trustsLinkOf(std::uint32_t owner) const noexcept;
  /// Whether something of the user `owner` may be removed. Always true for a user, whose rights decide.
  [[nodiscard]] bool trustsItemOf(std::uint32_t owner) const noexcept;
  /// Whether everything that was passed on the way to an item belongs to root or the caller: the owner of a
  /// folder decides what a path through it leads to. Always true for a user.
  [[nodiscard]] bool trustsWay(const std::vector<ItemIdentity>& passed) const;
  /// Whether no entry of this folder may be removed: it is "/".
  [[nodiscard]] bool protectsEntriesOf(const ItemNumber& folder) const;
  /// Whether the item is a listed place, of any class, or lies above one.
  [[nodiscard]] bool protects(const ItemNumber& item) const;
  /// Whether things in the last folder of `chain`, which begins with "/", lie in a protected subtree. Where
  /// the chain enters a mount that shows a folder of another place too, what lies above that place counts as
  /// well; if that can't be found out, a helper's policy takes it as protected.
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
