#include "Host/TerminalAgent.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "Tests/Support/ProcessState.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::cli {
namespace {

namespace fs = std::filesystem;

class TerminalAgentTest : public testing::Test {
 protected:
  [[nodiscard]] std::string program(const std::string& commands) const {
    const std::string file = folder_.file("pkttyagent", "#!/bin/sh\n" + commands + "\n");
    fs::permissions(file, fs::perms::owner_all);
    return file;
  }

  test::TemporaryFolder folder_;
};

TEST_F(TerminalAgentTest, itServesThisProcessAloneUntilItsEnd) {
  const std::string words = folder_.path("words");
  {
    // Ready like polkit's agent: when it closes the descriptor.
    TerminalAgent agent(program("echo \"$@\" >'" + words + "'\nexec 3>&-\nexec /usr/bin/tail -f /dev/null"));
    agent.waitUntilReady();
    EXPECT_EQ(test::contentOf(words),
              "--process " + std::to_string(::getpid()) + " --fallback --notify-fd 3\n");
    EXPECT_TRUE(test::hasChildProcesses());
  }
  EXPECT_FALSE(test::hasChildProcesses());
}

TEST_F(TerminalAgentTest, anAgentThatEndsAtOnceKeepsTheCleanNotWaiting) {
  TerminalAgent agent(program("exit 1"));
  agent.waitUntilReady();
  agent.waitUntilReady();
}

TEST_F(TerminalAgentTest, withoutTheProgramNothingIsStarted) {
  TerminalAgent agent(folder_.path("none"));
  agent.waitUntilReady();
  EXPECT_FALSE(test::hasChildProcesses());
}

TEST_F(TerminalAgentTest, itGetsNoOtherDescriptorOfThisProcess) {
  const std::string list = folder_.path("list");
  const int foreign = ::fcntl(STDERR_FILENO, F_DUPFD, 50);
  {
    TerminalAgent agent(program("ls /proc/$$/fd >'" + list + "'\nexec 3>&-"));
    agent.waitUntilReady();
  }
  ::close(foreign);
  // The shell itself reads its script from a descriptor above those.
  EXPECT_TRUE(test::contentOf(list).starts_with("0\n1\n")) << test::contentOf(list);
  EXPECT_EQ(test::contentOf(list).find("\n" + std::to_string(foreign) + "\n"), std::string::npos);
}

}  // namespace
}  // namespace sorrel::cli
