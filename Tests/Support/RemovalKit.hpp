#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "SorrelFramework/Removal/TreeRemoval.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel::test {

/// A user without permissions whom every system knows: "nobody".
inline constexpr unsigned kKnownUser = 65534;

/// True if there is an item at `path`, even a broken link.
bool isThere(const std::string& path);
/// "0" for a success, else the error, and further facts: "1 refused", "2 absent".
std::string textOf(const RemovalResult& result);
/// The number of the item itself, which must exist.
ItemNumber numberOf(const std::string& path);

/// Ends this process at its first attempt to remove or rename any item.
bool raiseFence();
/// Makes openat2(2) fail with `error` in this process, as on old kernels and in some sandboxes.
bool takeAwayOpenat2(int error);

/// Removals in a volume under a user's policy.
class RemovalStage : public testing::Test {
 protected:
  [[nodiscard]] RemovalResult remove(std::string_view name) const {
    return removeItem(volume_.path(name), policy_);
  }
  /// The result of a removal in a child behind the fence.
  [[nodiscard]] std::string behindFence(const std::string& path) const;

  TemporaryVolume volume_;
  RemovalPolicy policy_ = RemovalPolicy::forUser();
};

}  // namespace sorrel::test
