// The contract of the main function of a test program, checked with the tests of SampleProgram.cpp.

#include <gtest/gtest.h>
#include <TestPlaces.hpp>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "SorrelFramework/Platform/Machine/ChildProcess.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::test {
namespace {

struct SampleRun {
  int status = -1;
  bool isSkipped = false;  ///< as CTest sees it
  std::string out;         ///< without the words that CTest searches for
};

class TestProgram : public testing::Test {
 protected:
  /// Runs one sample as user 1000 of a user namespace, without any further permissions.
  [[nodiscard]] SampleRun asPlainUser(const std::string& sample) const {
    return start("/usr/bin/unshare", {"--user", "--map-user=1000", "--map-group=1000", "/usr/bin/env",
                                      "TMPDIR=" + folder.path(), SORREL_SAMPLE_PROGRAM, filter(sample)});
  }
  [[nodiscard]] SampleRun asThisUser(const std::string& sample) const {
    return start("/usr/bin/env", {"TMPDIR=" + folder.path(), SORREL_SAMPLE_PROGRAM, filter(sample)});
  }
  [[nodiscard]] bool isFolderEmpty() const { return std::filesystem::is_empty(folder.path()); }

  void requireNamespaces() const {
    const SampleRun run =
        start("/usr/bin/unshare", {"--user", "--map-user=1000", "--map-group=1000", "/usr/bin/unshare",
                                   "--user", "--map-root-user", "--mount", "/bin/true"});
    if (run.status != 0) GTEST_SKIP() << "the kernel makes no user namespaces for users";
  }

 private:
  static std::string filter(const std::string& sample) { return "--gtest_filter=Sample." + sample; }
  static SampleRun start(const std::string& program, const std::vector<std::string>& words) {
    SampleRun run;
    ChildProcess child(program, words);
    run.status = child
                     .run([&](std::string_view line) {
                       run.out += line;
                       return true;
                     })
                     .exitStatus;
    for (std::size_t at = 0; (at = run.out.find("[  SKIPPED ]")) != std::string::npos; run.isSkipped = true) {
      run.out.replace(at, 12, "(skipped)");
    }
    return run;
  }

  const TemporaryFolder folder;
};

TEST_F(TestProgram, takesAwayTheFoldersOfItsChildren) {
  const SampleRun run = asThisUser("leavesTheFolderOfAChild");
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_TRUE(isFolderEmpty());
}

TEST_F(TestProgram, runsWhatAnOrdinaryUserSkipsInANamespace) {
  ASSERT_NO_FATAL_FAILURE(requireNamespaces());
  if (IsSkipped()) return;
  const SampleRun run = asPlainUser("mounts");
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_NE(run.out.find("[       OK ] Sample.mounts"), std::string::npos) << run.out;
  EXPECT_FALSE(run.isSkipped) << run.out;
  EXPECT_TRUE(isFolderEmpty());
}

TEST_F(TestProgram, failsIfATestFailsInTheNamespace) {
  ASSERT_NO_FATAL_FAILURE(requireNamespaces());
  if (IsSkipped()) return;
  const SampleRun run = asPlainUser("failsAsRoot");
  EXPECT_EQ(run.status, 1) << run.out;
  EXPECT_NE(run.out.find("[  FAILED  ] Sample.failsAsRoot"), std::string::npos) << run.out;
  EXPECT_FALSE(run.isSkipped) << run.out;
}

TEST_F(TestProgram, saysWhatIsSkipped) {
  const SampleRun run = asThisUser("isSkippedByAll");
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_TRUE(run.isSkipped) << run.out;
}

TEST_F(TestProgram, isNotSkippedIfATestFailed) {
  const SampleRun run = asThisUser("failsAndIsSkipped");
  EXPECT_EQ(run.status, 1) << run.out;
  EXPECT_FALSE(run.isSkipped) << run.out;
}

}  // namespace
}  // namespace sorrel::test
