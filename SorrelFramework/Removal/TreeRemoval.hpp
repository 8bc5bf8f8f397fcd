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
  /// 0: everything that was named is gone. Otherwise the errno of the first failure; the rest is removed all
  /// the same.
  int error = 0;
  /// True if the first failure was a refusal of the policy, not of the system.
  bool isRefused = false;
  /// True if the item, and perhaps its parent folder, did not exist, at a path where the policy would have
  /// allowed the removal; `error` is ENOENT.
  bool isAbsent = false;
  std::uint64_t removedEntries = 0;

  [[nodiscard]] bool isSuccess() const noexcept { return error == 0; }
};

/// Removes the item at the absolute path `path`: a file, a link itself, or a folder with everything below it.
/// With `expected`, only if it is that item; used for a caller whose mount namespace may show other items
/// under the same names.
///
/// Follows no link: the path down to the item is opened component by component, and a link in a component
/// above it is followed by hand only if `policy` trusts its owner. Every folder is held by descriptor, and an
/// entry is checked once more (device, inode, type, mount) right before it is removed, so that a replacement
/// put there in between is not touched. Never crosses a mount point, enters nothing that `policy` protects,
/// opens no more than a fixed number of files at any depth, does not recurse, keeps no more than one buffer
/// of a folder's entries, and changes no mode unless `policy` opens a user's own folders: then only of the
/// item and folders below it, never of the folder that holds it. A failure does not end the removal: the rest
/// is removed and the first error is kept. An entry below the item that vanishes by itself is no failure.
///
/// Errors of its own, besides those of the system: EINVAL for a path that is not normal, ELOOP for a link
/// that may not be followed, EPERM for an item that the policy protects, EBUSY and EXDEV for mount points and
/// other file systems, ESTALE for an item that was replaced by another, and, for every path,
/// RemovalPolicy::error() if it is set.
RemovalResult removeItem(const std::string& path, const RemovalPolicy& policy);

/// The same, but only if `path` leads to the item `expected`, else it is refused (ESTALE); for a caller whose
/// mount namespace may show other items under the same names.
RemovalResult removeExpectedItem(const std::string& path, const ItemNumber& expected,
                                 const RemovalPolicy& policy);

/// Removals under one policy, one after the other; shared work is done once. Not thread-safe; `policy` must
/// outlive it.
class TreeRemover {
 public:
  explicit TreeRemover(const RemovalPolicy& policy) : policy_(policy), removal_(policy) {}

  /// As the free function of that name.
  RemovalResult removeItem(const std::string& path);

  // The same in two steps, for callers that must check the found item before it goes.

  /// Removes nothing.
  RemovalTarget find(const std::string& path);
  /// Removes the found item if its name still refers to it; if it may not be removed, the result says why.
  RemovalResult remove(RemovalTarget target);
  /// The same, but each regular file that has bytes when it is reached stays, with the folders above it
  /// (ENOTEMPTY). No data that was added since the item was found is lost.
  RemovalResult removeWithoutBytes(RemovalTarget target);

 private:
  RemovalResult run(RemovalTarget target, FolderRemoval::Takes takes);

  const RemovalPolicy& policy_;
  FolderRemoval removal_;
  PathWalk::KnownWay known_;  // to the folder of the last item
};

}  // namespace sorrel
