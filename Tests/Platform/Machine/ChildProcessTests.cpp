#include "SorrelFramework/Platform/Machine/ChildProcess.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/Support/ProcessState.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel {
namespace {

using std::chrono::milliseconds;
using test::TemporaryFolder;

struct Outcome {
  ChildProcess::Ending ending;
  std::string output;
};

Outcome run(const std::string& path, const std::vector<std::string>& arguments = {},
            ChildLimits limits = {}) {
  ChildProcess child(path, arguments, limits);
  EXPECT_EQ(child.startError(), 0);
  Outcome outcome;
  outcome.ending = child.run([&](std::string_view piece) {
    outcome.output += piece;
    return true;
  });
  return outcome;
}

/// Each test leaves the process unchanged: no additional child or descriptor.
class ChildProcessTest : public testing::Test {
 protected:
  ~ChildProcessTest() override {
    EXPECT_FALSE(test::hasChildProcesses());
    EXPECT_EQ(test::openDescriptors(), descriptors_);
  }

  Outcome runScript(std::string_view commands, const std::vector<std::string>& arguments = {},
                    ChildLimits limits = {}) const {
    return run(folder_.script("tool", commands), arguments, limits);
  }

  const std::size_t descriptors_ = test::openDescriptors();
  TemporaryFolder folder_;
};

using ChildProcessDeathTest = ChildProcessTest;

TEST_F(ChildProcessTest, givesTheOutputAndTheExitStatus) {
  const auto [ending, output] = runScript("echo hello; exit 3");
  EXPECT_EQ(output, "hello\n");
  EXPECT_EQ(ending.exitStatus, 3);
  EXPECT_EQ(ending.signal, 0);
  EXPECT_FALSE(ending.outputCut);
}

TEST_F(ChildProcessTest, toolWithoutOutputGivesNone) {
  const auto [ending, output] = run("/bin/true");
  EXPECT_EQ(output, "");
  EXPECT_EQ(ending.exitStatus, 0);
}

TEST_F(ChildProcessTest, argumentsArriveByteForByte) {
  const auto outcome = runScript("for a; do printf '[%s]' \"$a\"; done",
                                 {"", "a b", "*", "$HOME;exit", "--", "-x", "line\nfeed", "\xff\xfe", "'\""});
  EXPECT_EQ(outcome.output, "[][a b][*][$HOME;exit][--][-x][line\nfeed][\xff\xfe]['\"]");
}

TEST_F(ChildProcessTest, standardErrorIsNotPartOfTheOutput) {
  EXPECT_EQ(runScript("exec 2>/dev/null; echo out; echo error >&2").output, "out\n");
}

TEST_F(ChildProcessTest, outputLargerThanThePipeArrivesWhole) {
  const auto [ending, output] =
      run("/bin/sh", {"-c",
                      "i=0; while [ $i -lt 20000 ]; do echo 0123456789012345678901234567890123456789; "
                      "i=$((i+1)); done"});
  EXPECT_EQ(output.size(), 20'000U * 41U);
  EXPECT_EQ(output.substr(output.size() - 41), "0123456789012345678901234567890123456789\n");
  EXPECT_EQ(ending.exitStatus, 0);
}

TEST_F(ChildProcessTest, bytesThatAreNoTextArriveAsTheyAre) {
  EXPECT_EQ(runScript(R"(printf '\377\000\n')").output, std::string("\xff\0\n", 3));
}

TEST_F(ChildProcessTest, absentToolReportsWhy) {
  ChildProcess child(folder_.path("absent"), {});
  EXPECT_EQ(child.startError(), ENOENT);
  bool called = false;
  const auto ending = child.run([&](std::string_view) { return called = true; });
  EXPECT_FALSE(called);
  EXPECT_EQ(ending.exitStatus, -1);
}

TEST_F(ChildProcessTest, fileThatIsNoProgramReportsWhy) {
  EXPECT_EQ(ChildProcess(folder_.file("plain", "echo hello\n"), {}).startError(), EACCES);
  EXPECT_EQ(ChildProcess(folder_.path(), {}).startError(), EACCES);
  const std::string noHeader = folder_.file("noHeader", "echo hello\n");
  ::chmod(noHeader.c_str(), 0700);
  EXPECT_EQ(ChildProcess(noHeader, {}).startError(), ENOEXEC);
}

TEST_F(ChildProcessTest, searchesNoPath) {
  EXPECT_EQ(ChildProcess("true", {}).startError(), ENOENT);
  EXPECT_EQ(ChildProcess("", {}).startError(), ENOENT);
}

TEST_F(ChildProcessTest, zeroByteInAPathOrAnArgumentStartsNothing) {
  EXPECT_EQ(ChildProcess(std::string("/bin/true\0x", 11), {}).startError(), EINVAL);
  EXPECT_EQ(ChildProcess("/bin/true", {std::string("a\0b", 3)}).startError(), EINVAL);
}

TEST_F(ChildProcessTest, endBySignalIsTold) {
  const auto [ending, output] = runScript("echo before; kill -TERM $$; echo after");
  EXPECT_EQ(output, "before\n");
  EXPECT_EQ(ending.signal, SIGTERM);
  EXPECT_EQ(ending.exitStatus, -1);
}

TEST_F(ChildProcessTest, environmentHoldsOnlyWhatToolsNeed) {
  ::setenv("SORREL_TEST_SETTING", "1", 1);
  ::setenv("LC_ALL", "C", 1);
  ::setenv("XDG_DATA_HOME", "/data home", 1);
  ::unsetenv("XDG_STATE_HOME");
  const std::string output = run("/usr/bin/env").output;
  ::unsetenv("SORREL_TEST_SETTING");
  ::unsetenv("LC_ALL");
  ::unsetenv("XDG_DATA_HOME");
  EXPECT_TRUE(output.starts_with("PATH=/usr/bin:/bin:/usr/sbin:/sbin\nLANG=C.UTF-8\n"));
  EXPECT_NE(output.find("\nXDG_DATA_HOME=/data home\n"), std::string::npos);
  EXPECT_EQ(output.find("SORREL_TEST_SETTING"), std::string::npos);
  EXPECT_EQ(output.find("LC_ALL"), std::string::npos);
  EXPECT_EQ(output.find("XDG_STATE_HOME"), std::string::npos);
}

TEST_F(ChildProcessTest, rootOfAMountedVolumeIsToldToTheChild) {
  EXPECT_EQ(run("/usr/bin/env").output.find("SORREL_VOLUME"), std::string::npos);
  Host::install(Host::macVolume("/mnt/My Volume/", "alice", {}));
  const std::string output = run("/usr/bin/env").output;
  Host::install(Host::macVolume("", "alice", {}));
  const std::string ofThisMachine = run("/usr/bin/env").output;
  Host::install(Host::linuxDesktop({}));
  EXPECT_NE(output.find("\nSORREL_VOLUME=/mnt/My Volume\n"), std::string::npos);
  EXPECT_EQ(ofThisMachine.find("SORREL_VOLUME"), std::string::npos);
}

TEST_F(ChildProcessTest, standardInputIsEmpty) {
  EXPECT_EQ(runScript("readlink /proc/self/fd/0; cat").output, "/dev/null\n");
}

TEST_F(ChildProcessTest, inheritsNoOtherDescriptor) {
  const int open = ::open("/dev/null", O_RDONLY);  // without close-on-exec, as a careless library might
  const std::string output = run("/bin/ls", {"/proc/self/fd"}).output;
  ::close(open);
  EXPECT_EQ(output, "0\n1\n2\n3\n");  // 3 is the listing
}

TEST_F(ChildProcessTest, startsWithOpenAndDefaultSignals) {
  struct sigaction before {};
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  ::sigaction(SIGPIPE, &ignore, &before);
  std::string output;
  std::thread([&] {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    output = run("/bin/cat", {"/proc/self/status"}).output;
  }).join();
  ::sigaction(SIGPIPE, &before, nullptr);
  EXPECT_NE(output.find("SigBlk:\t0000000000000000\n"), std::string::npos) << output;
  EXPECT_NE(output.find("SigIgn:\t0000000000000000\n"), std::string::npos) << output;
}

TEST_F(ChildProcessTest, leadsASessionOfItsOwn) {
  std::istringstream stat(run("/bin/cat", {"/proc/self/stat"}).output);
  std::string pid, name, state, parent, group, session;
  stat >> pid >> name >> state >> parent >> group >> session;
  EXPECT_EQ(session, pid);
  EXPECT_EQ(parent, std::to_string(::getpid()));
}

TEST_F(ChildProcessTest, diesWithTheThreadThatMadeIt) {
  std::unique_ptr<ChildProcess> child;
  std::thread([&] {
    child = std::make_unique<ChildProcess>("/bin/sleep", std::vector<std::string>{"1000"});
  }).join();
  EXPECT_EQ(child->run([](std::string_view) { return true; }).signal, SIGKILL);
}

TEST_F(ChildProcessTest, childThatNobodyRanIsKilled) {
  { const ChildProcess child("/bin/sleep", {"1000"}); }
  EXPECT_FALSE(test::hasChildProcesses());
}

TEST_F(ChildProcessTest, waitsForAChildThatClosedItsOutput) {
  const std::string gate = folder_.path("gate");
  ASSERT_EQ(::mkfifo(gate.c_str(), 0600), 0);
  std::jthread opener([&] { std::ofstream(gate) << "go\n"; });
  const auto [ending, output] = runScript("echo text; exec 1>&-; read line < \"$1\"; exit 5", {gate});
  EXPECT_EQ(output, "text\n");
  EXPECT_EQ(ending.exitStatus, 5);
}

TEST_F(ChildProcessTest, grandchildThatKeepsTheOutputDoesNotHangTheCall) {
  const auto [ending, output] = runScript("sleep 1000 & echo $!; exit 4", {}, {.drain = milliseconds(20)});
  EXPECT_EQ(ending.exitStatus, 4);
  const int grandchild = std::atoi(output.c_str());
  ASSERT_GT(grandchild, 1);
  EXPECT_EQ(::kill(grandchild, SIGKILL), 0) << "it should have been left alone";
}

TEST_F(ChildProcessTest, lastWordsOfAChildAreReadAfterItsEnd) {
  // More than one read, and all of it in the pipe when the child is gone.
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(run("/usr/bin/head", {"-c", "65536", "/dev/zero"}).output.size(), 65'536U);
  }
}

TEST_F(ChildProcessTest, slowReaderLosesNothingOfAnEndedChild) {
  const std::string gate = folder_.path("gate");
  ASSERT_EQ(::mkfifo(gate.c_str(), 0600), 0);
  // A process that it leaves behind keeps the pipe open, so that the child's end does not end the output.
  ChildProcess child(
      folder_.script("tool", "/bin/sleep 1000 & echo $!; read line < \"$1\"; head -c 60000 /dev/zero"),
      {gate}, {.drain = milliseconds(0)});
  std::string output;
  const auto ending = child.run([&](std::string_view piece) {
    if (output.empty()) {
      std::ofstream(gate) << "go\n";
      siginfo_t info{};
      // Returns only when the child has ended, with the rest of its output in the pipe.
      EXPECT_EQ(::waitid(P_ALL, 0, &info, WEXITED | WNOWAIT), 0);
    }
    output += piece;
    return true;
  });
  EXPECT_EQ(ending.exitStatus, 0);
  EXPECT_EQ(output.size() - output.find('\n') - 1, 60'000U);
  EXPECT_EQ(::kill(std::stoi(output), SIGKILL), 0);
}

TEST_F(ChildProcessTest, endlessOutputIsCutAndInterrupted) {
  const auto [ending, output] = run("/usr/bin/yes", {}, {.output = 100'001});
  EXPECT_EQ(output.size(), 100'001U);
  EXPECT_TRUE(ending.outputCut);
  EXPECT_EQ(ending.signal, SIGINT);
}

TEST_F(ChildProcessTest, outputThatJustFitsIsNotCut) {
  const auto [ending, output] = run("/usr/bin/head", {"-c", "100000", "/dev/zero"}, {.output = 100'000});
  EXPECT_EQ(output.size(), 100'000U);
  EXPECT_FALSE(ending.outputCut);
  EXPECT_EQ(ending.exitStatus, 0);
}

TEST_F(ChildProcessTest, endlessOutputThatIgnoresTheInterruptIsKilled) {
  const auto [ending, output] = runScript("trap '' INT; while :; do echo more; done", {},
                                          {.output = 1'000, .killAfter = milliseconds(5)});
  EXPECT_EQ(output.size(), 1'000U);
  EXPECT_TRUE(ending.outputCut);
  EXPECT_EQ(ending.signal, SIGKILL);
}

TEST_F(ChildProcessTest, handlerMayAskForAnInterrupt) {
  ChildProcess child(folder_.script("tool", "echo ready; exec sleep 1000"), {});
  EXPECT_EQ(child.run([](std::string_view) { return false; }).signal, SIGINT);
}

TEST_F(ChildProcessTest, outputAfterAnInterruptIsStillHandedOver) {
  ChildProcess child(
      folder_.script("tool", "trap 'echo last; exit 6' INT; echo first; while :; do sleep 0.01; done"), {});
  std::string output;
  const auto ending = child.run([&](std::string_view piece) {
    output += piece;
    return output != "first\n";
  });
  EXPECT_EQ(output, "first\nlast\n");
  EXPECT_EQ(ending.exitStatus, 6);
}

TEST_F(ChildProcessTest, interruptComesFromAnyThread) {
  ChildProcess child("/bin/sleep", {"1000"});
  std::jthread other([&] { child.interrupt(); });
  EXPECT_EQ(child.run([](std::string_view) { return true; }).signal, SIGINT);
}

TEST_F(ChildProcessTest, killEndsAChildThatIgnoresInterruptsAndWhatItStarted) {
  const std::string path = folder_.script("tool", "trap '' INT; /bin/sleep 1000 & echo ready; wait");
  ChildLimits limits;
  limits.drain = std::chrono::hours(1);  // the process that keeps the output open would be waited for
  ChildProcess child(path, {}, limits);
  std::string output;
  const ChildProcess::Ending ending = child.run([&](std::string_view piece) {
    output += piece;
    child.kill();
    return true;
  });
  EXPECT_EQ(ending.signal, SIGKILL);
  EXPECT_EQ(output, "ready\n");
}

TEST_F(ChildProcessTest, killOfAnEndedChildDoesNothing) {
  ChildProcess child(folder_.script("tool", "exit 3"), {});
  EXPECT_EQ(child.run([](std::string_view) { return true; }).exitStatus, 3);
  child.kill();
}

TEST_F(ChildProcessTest, interruptOfAnEndedChildDoesNothing) {
  ChildProcess child("/bin/true", {});
  EXPECT_EQ(child.run([](std::string_view) { return true; }).exitStatus, 0);
  child.interrupt();
  EXPECT_EQ(child.run([](std::string_view) { return true; }).exitStatus, -1);
}

TEST_F(ChildProcessTest, worksInAProcessThatIgnoresItsChildren) {
  const auto before = ::signal(SIGCHLD, SIG_IGN);
  const std::string output = runScript("echo hello").output;
  ::signal(SIGCHLD, before);
  EXPECT_EQ(output, "hello\n");
}

TEST_F(ChildProcessDeathTest, worksInAProcessWithoutStandardStreams) {
  EXPECT_EXIT(
      {
        for (const int stream : {0, 1}) ::close(stream);
        std::_Exit(run("/bin/echo", {"hello"}).output == "hello\n" ? 9 : 1);
      },
      testing::ExitedWithCode(9), "");
}

TEST_F(ChildProcessTest, manyAtOnceDoNotMixTheirOutput) {
  std::atomic<int> wrong{0};
  std::vector<std::jthread> threads;
  threads.reserve(6);
  for (int t = 0; t < 6; ++t) {
    threads.emplace_back([&wrong, t] {
      for (int i = 0; i < 15; ++i) {
        const std::string text = std::to_string(t * 100 + i);
        if (run("/bin/echo", {text}).output != text + "\n") ++wrong;
      }
    });
  }
  threads.clear();
  EXPECT_EQ(wrong, 0);
}

TEST_F(ChildProcessTest, manyRunsOfEveryKindLeaveNothingBehind) {
  const std::string dies = folder_.script("dies", "kill -KILL $$");
  for (int i = 0; i < 40; ++i) {
    EXPECT_EQ(run("/bin/true").ending.exitStatus, 0);
    EXPECT_EQ(run(dies).ending.signal, SIGKILL);
    EXPECT_EQ(ChildProcess(folder_.path("absent"), {}).startError(), ENOENT);
    EXPECT_TRUE(run("/usr/bin/yes", {}, {.output = 10}).ending.outputCut);
  }
  EXPECT_FALSE(test::hasChildProcesses());
  EXPECT_EQ(test::openDescriptors(), descriptors_);
}

}  // namespace
}  // namespace sorrel
