#pragma once

#include <cstdint>
#include <string>

#include "SorrelFramework/Removal/FolderRemoval.hpp"
#include "SorrelFramework/Removal/ItemIdentity.hpp"
#include "SorrelFramework/Removal/PathWalk.hpp"
#include "SorrelFramework/Removal/RemovalPolicy.hpp"
#include "SorrelFramework/Removal/RemovalTarget.hpp"

namespace sorrel {

/// How a removal ended.
struct RemovalResult {
  /// 0: everything that was named is gone. Otherwise the errno of the first failure; what could be removed is
  /// removed all the same.
  int error = 0;
  /// True if the policy, and not the system, said no to what failed first.
  bool isRefused = false;
  /// True if there was no such item, nor perhaps the folder that would hold it, in a place where the policy
  /// would have let one go; `error` is ENOENT.
  bool isAbsent = false;
  std::uint64_t removedEntries = 0;

  [[nodiscard]] bool isSuccess() const noexcept { return error == 0; }
};

/// Removes the item at the absolute path `path`: a file, a link itself, or a folder with all that lies below
/// it. With `expected`, only if it is that item; a removal on behalf of somebody who may see other places
/// under the same names says so.
///
/// Follows no link: the way down to the item is opened component by component, and a link in a component
/// above it is followed by hand only where `policy` trusts its owner. Every folder that is met is held by
/// descriptor, and an entry is looked at once more (device, inode, type, mount) right before it is taken
/// away, so that nothing that is put in its place in between is touched. Never crosses a mount point, enters
/// nothing that `policy` protects, opens no more than a fixed number of files at any depth, does not recurse,
/// keeps no list of a folder's entries but a buffer's worth, and changes no mode unless `policy` opens a
/// user's own folders: then of the item and folders below it, never of the folder that holds it. A failure
/// does not end it: the rest is removed and the first error is kept. Something below the item that vanishes
/// by itself is no failure.
///
/// Errors of its own, besides those of the system: EINVAL for a path that is not normal, ELOOP for a link
/// that may not be followed, EPERM for what the policy protects, EBUSY and EXDEV for mount points and other
/// file systems, ESTALE for an item that was replaced by another, and RemovalPolicy::error() for everything.
RemovalResult removeItem(const std::string& path, const RemovalPolicy& policy);

/// The same, but only if `path` leads to the item `expected`, else it is refused (ESTALE); for a removal on
/// behalf of somebody who may see other places under the same names.
RemovalResult removeExpectedItem(const std::string& path, const ItemNumber& expected,
                                 const RemovalPolicy& policy);

/// Removals under one policy, one after the other: what they have in common is done once. Not safe on several
/// threads at a time; `policy` must outlive it.
class TreeRemover {
 public:
  explicit TreeRemover(const RemovalPolicy& policy) : policy_(policy), removal_(policy) {}

  /// As the function of that name.
  RemovalResult removeItem(const std::string& path);

  // The same in two steps, for who has something to ask of the very item that would go.

  /// Removes nothing.
  RemovalTarget find(const std::string& path);
  /// Removes what was found, if it still is where it was; of what may not go, the result says why.
  RemovalResult remove(RemovalTarget target);
  /// The same, but each regular file that holds bytes when its turn comes stays, with the folders above it
  /// (ENOTEMPTY). Nothing that came or grew since the item was found is lost.
  RemovalResult removeWithoutBytes(RemovalTarget target);

 private:
  RemovalResult run(RemovalTarget target, FolderRemoval::Takes takes);

  const RemovalPolicy& policy_;
  FolderRemoval removal_;
  PathWalk::KnownWay known_;  // to the folder of the last item
};

}  // namespace sorrel
