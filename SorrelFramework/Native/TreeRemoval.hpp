#pragma once

#include <cstdint>
#include <string>

#include "SorrelFramework/Native/RemovalPolicy.hpp"

namespace sorrel {

/// How a removal ended.
struct RemovalResult {
  /// 0: everything that was named is gone. Otherwise the errno of the first failure; what could be removed is
  /// removed all the same.
  int error = 0;
  /// True if the policy, and not the system, said no.
  bool isRefused = false;
  std::uint64_t removedEntries = 0;

  [[nodiscard]] bool isSuccess() const noexcept { return error == 0; }
};

/// Removes the item at the absolute path `path`: a file, a link itself, or a folder with all that lies below
/// it.
///
/// Follows no link: the way down to the item is opened component by component, and a link in a component
/// above it is followed by hand only where `policy` trusts its owner. Every folder that is met is held by
/// descriptor, and an entry is looked at once more (device, inode, type, mount) right before it is taken
/// away, so that nothing that is put in its place in between is touched. Never crosses a mount point, enters
/// nothing that `policy` protects, opens no more than a fixed number of files at any depth, does not recurse,
/// keeps no list of a folder's entries, and never changes a mode. A failure does not end it: the rest is
/// removed and the first error is kept.
RemovalResult removeItem(const std::string& path, const RemovalPolicy& policy);

}  // namespace sorrel
