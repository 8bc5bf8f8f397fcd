#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "SorrelFramework/Removal/TreeRemoval.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel::test {

/// A user without rights whom every system knows: "nobody".
inline constexpr unsigned kKnownUser = 65534;

/// Whether there is something at `path`, be it a broken link.
bool isThere(const std::string& path);
/// "0" for a success, else the error, and what more there is to it: "1 refused", "2 absent".
std::string textOf(const RemovalResult& result);
/// Of the item itself. Expects that there is one.
ItemNumber numberOf(const std::string& path);

/// Ends this process at the first attempt to remove or rename anything, wherever it lies.
bool raiseFence();
/// Lets the system answer openat2(2) with `error` in this process, as old kernels and some sandboxes do.
bool takeAwayOpenat2(int error);

/// Removals in a volume under a user's policy.
class RemovalStage : public testing::Test {
 protected:
  [[nodiscard]] RemovalResult remove(std::string_view name) const {
    return removeItem(volume_.path(name), policy_);
  }
  /// Tells of a removal in a child behind the fence.
  [[nodiscard]] std::string behindFence(const std::string& path) const;

  TemporaryVolume volume_;
  RemovalPolicy policy_ = RemovalPolicy::forUser();
};

}  // namespace sorrel::test
