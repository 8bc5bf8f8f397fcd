// Tests that TestProgramTests runs in a separate program, to observe the main function of a test program.

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::test {
namespace {

TEST(Sample, leavesTheFolderOfAChild) {
  const std::string path = inChild([] { return (new TemporaryFolder)->path(); });
  EXPECT_EQ(::access(path.c_str(), F_OK), 0) << path;
}

TEST(Sample, mounts) {
  const TemporaryFolder folder;
  const std::string told = inMountingChild([&]() -> std::string {
    if (::mount("none", folder.path().c_str(), "tmpfs", 0, nullptr) != 0) return "no mount";
    return "mounted";
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, "mounted");
}

TEST(Sample, failsAsRoot) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  ADD_FAILURE();
}

TEST(Sample, isSkippedByAll) { GTEST_SKIP() << "needs what is not there"; }

TEST(Sample, failsAndIsSkipped) {
  ADD_FAILURE();
  GTEST_SKIP() << "needs root";
}

}  // namespace
}  // namespace sorrel::test
