#pragma once

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <functional>
#include <string>
#include <string_view>

#include "SorrelFramework/Removal/RemovalPolicy.hpp"
#include "SorrelFramework/Removal/RemovalTarget.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/RemovalKit.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel::test {

/// Mounts in a volume, in a child process with a mount table of its own, and the verdicts of policies on
/// items there. Nothing is removed.
class MountStage : public testing::Test {
 protected:
  /// Skips the test if the child could not mount.
  static void expect(const std::function<std::string()>& work, const std::string& expected) {
    const std::string answers = inMountingChild(work);
    if (answers == "skip") GTEST_SKIP() << "nothing can be mounted here";
    EXPECT_EQ(answers, expected);
  }
  [[nodiscard]] bool bind(const std::string& from, std::string_view to, unsigned long flags = 0) const {
    return ::mount(from.c_str(), volume_.folder(to).c_str(), nullptr, MS_BIND | flags, nullptr) == 0;
  }
  [[nodiscard]] bool memory(std::string_view at) const {
    return ::mount("memory", volume_.folder(at).c_str(), "tmpfs", 0, "mode=755") == 0;
  }
  /// The answer of a helper's policy that refuses the folder "kept".
  [[nodiscard]] std::string helpers(const std::string& path) const {
    return answer(path, RemovalPolicy::forHelper(kKnownUser));
  }
  /// The same for a user's policy.
  [[nodiscard]] std::string roots(const std::string& path) const {
    return answer(path, RemovalPolicy::forUser());
  }
  [[nodiscard]] std::string answer(const std::string& path, RemovalPolicy policy) const {
    policy.protectSubtree(volume_.path("kept"));
    return ask(path, policy);
  }
  static std::string ask(const std::string& path, const RemovalPolicy& policy) {
    const RemovalTarget target = RemovalTarget::find(path, policy);
    return target.error() == 0 ? "free " : target.isRefused() ? "refused " : "error ";
  }

  const TemporaryVolume volume_;
};

}  // namespace sorrel::test
