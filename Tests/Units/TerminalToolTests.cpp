#include "SorrelFramework/Units/TerminalTool.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Machine/ChildProcess.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Units/LogService.hpp"
#include "SorrelFramework/Units/ScanStatus.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/ProcessState.hpp"
#include "Tests/Support/RecordingQueue.hpp"
#include "Tests/Support/TemporaryFolder.hpp"
#include "Tests/Support/VirtualClock.hpp"

namespace sorrel {
namespace {

constexpr std::int64_t kFeature = 3;
constexpr std::size_t kBigLines = 50'000;  // far more than the capacity of a pipe
constexpr const char* kBigScript = "exec /usr/bin/seq 100001 150000";

/// Every call of `finish`: its text, and whether it ran on the queue.
class Finished {
 public:
  TerminalFinish on(const std::shared_ptr<test::RecordingQueue>& queue) {
    return [this, watch = std::weak_ptr(queue)](std::string text) {
      const auto alive = watch.lock();
      const std::lock_guard lock(mutex_);
      texts_.push_back(std::move(text));
      onQueue_ = onQueue_ && alive != nullptr && alive->isCurrent();
    };
  }
  std::vector<std::string> texts() {
    const std::lock_guard lock(mutex_);
    EXPECT_TRUE(onQueue_);
    return texts_;
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> texts_;
  bool onQueue_ = true;
};

class TerminalTool : public testing::Test {
 protected:
  TerminalTool() {
    scanStatusTable().resetForTesting();
    Host host = Host::macVolume(folder_.folder("volume"), "alice", {});
    host.setToolFolder(folder_.folder("tools"));
    Host::install(std::move(host));
  }
  ~TerminalTool() override {
    scanStatusTable().resetForTesting();
    EXPECT_FALSE(test::hasChildProcesses());
    EXPECT_EQ(test::openDescriptors(), descriptors_);
  }

  std::string tool(std::string_view commands) const { return folder_.script("a tool", commands); }

  /// The results that `finish` got from the class-level form.
  std::vector<std::string> finished(const std::string& path, const std::vector<std::string>& arguments = {}) {
    Finished result;
    TerminalUtils::realTimeRunTerminal(path, arguments, queue_, result.on(queue_));
    EXPECT_TRUE(test::drain(*queue_));
    return result.texts();
  }
  /// The same from the form that a stopped scan interrupts.
  std::vector<std::string> finishedOfFeature(const std::string& path) {
    Finished result;
    TerminalUtilsClass(kFeature).realTimeRunTerminal(path, {}, queue_, result.on(queue_));
    EXPECT_TRUE(test::drain(*queue_));
    return result.texts();
  }

  /// Counted after the main loop has opened its own, which it keeps.
  static std::size_t descriptorsWithMainLoop() {
    EXPECT_TRUE(test::drainMainQueue());
    return test::openDescriptors();
  }

  const std::size_t descriptors_ = descriptorsWithMainLoop();
  test::TemporaryFolder folder_;
  const std::shared_ptr<test::RecordingQueue> queue_ = std::make_shared<test::RecordingQueue>();
};

using Texts = std::vector<std::string>;

TEST_F(TerminalTool, givesTheWholeOutput) {
  EXPECT_EQ(TerminalUtils::runTerminal(tool("echo one; echo 'zwölf'"), {}), "one\nzwölf\n");
  EXPECT_EQ(TerminalUtilsClass(kFeature).runTerminal(tool("echo two"), {}), "two\n");
  EXPECT_EQ(finished(tool("echo three")), Texts{"three\n"});
}

TEST_F(TerminalTool, passesItsArguments) {
  const std::string path = tool("for a; do echo \"[$a]\"; done");
  EXPECT_EQ(TerminalUtils::runTerminal(path, {"-name", "a b"}), "[-name]\n[a b]\n");
  EXPECT_EQ(finished(path, {"$HOME", ""}), Texts{"[$HOME]\n[]\n"});
}

TEST_F(TerminalTool, toolThatPrintsNothingGivesTheEmptyText) {
  EXPECT_EQ(TerminalUtils::runTerminal("/bin/true", {}), "");
  EXPECT_EQ(finished("/bin/true"), Texts{""});
}

TEST_F(TerminalTool, outputThatIsNoUTF8GivesErrorOrNothing) {
  const std::string path = tool(R"(printf 'good\n\377\n')");
  EXPECT_EQ(TerminalUtils::runTerminal(path, {}), "Error");
  EXPECT_EQ(TerminalUtilsClass(kFeature).runTerminal(path, {}), "Error");
  EXPECT_EQ(finished(path), Texts{""});
  EXPECT_EQ(finishedOfFeature(path), Texts{""});
}

TEST_F(TerminalTool, charactersThatAreSplitBetweenPiecesStayWhole) {
  // Three bytes a character: 64 KiB is not a multiple of that.
  const std::string path = tool("/usr/bin/yes 字 | /usr/bin/head -n 60000 | /usr/bin/tr -d '\\n'");
  std::string expected;
  for (int i = 0; i < 60'000; ++i) expected += "字";
  EXPECT_EQ(finished(path), Texts{expected});
}

TEST_F(TerminalTool, missingToolGivesErrorOrNothing) {
  EXPECT_EQ(TerminalUtils::runTerminal(folder_.path("absent"), {}), "Error");
  EXPECT_EQ(finished(folder_.path("absent")), Texts{""});
  EXPECT_EQ(finishedOfFeature(folder_.path("absent")), Texts{""});
}

TEST_F(TerminalTool, exitStatusAndSignalAreNotLookedAt) {
  EXPECT_EQ(TerminalUtils::runTerminal(tool("echo text; exit 9"), {}), "text\n");
  EXPECT_EQ(TerminalUtils::runTerminal(tool("echo text; kill -KILL $$"), {}), "text\n");
  EXPECT_EQ(finished(tool("echo text; kill -SEGV $$")), Texts{"text\n"});
}

TEST_F(TerminalTool, bigOutputArrivesWhole) {
  const std::string path = tool(kBigScript);
  const std::string text = TerminalUtils::runTerminal(path, {});
  EXPECT_EQ(text.size(), kBigLines * 7);
  EXPECT_TRUE(text.ends_with("149999\n150000\n"));
  EXPECT_EQ(finished(path), Texts{text});
}

TEST_F(TerminalTool, standInGoesBeforeTheTool) {
  folder_.script("tools/true", "echo stand-in");
  EXPECT_EQ(TerminalUtils::runTerminal("/bin/true", {}), "stand-in\n");
  EXPECT_EQ(finished("/bin/true"), Texts{"stand-in\n"});
}

TEST_F(TerminalTool, finishRunsOnceAfterAllPieces) {
  Finished result;
  TerminalUtils::realTimeRunTerminal(tool(kBigScript), {}, queue_, result.on(queue_));
  ASSERT_TRUE(test::drain(*queue_));
  ASSERT_EQ(result.texts().size(), 1U);
  EXPECT_EQ(result.texts().front().size(), kBigLines * 7);
  EXPECT_GT(queue_->accepted(), 2U) << "pieces and the end are tasks of their own";
}

TEST_F(TerminalTool, mayBeCalledFromATaskOfTheQueueItself) {
  Finished result;
  queue_->submit([&] { TerminalUtils::realTimeRunTerminal(tool("echo x"), {}, queue_, result.on(queue_)); },
                 nullptr);
  ASSERT_TRUE(test::runMainLoopUntil([&] { return !result.texts().empty(); }));
  EXPECT_EQ(result.texts(), Texts{"x\n"});
  ASSERT_TRUE(test::drain(*queue_));
}

TEST_F(TerminalTool, refusedPiecesAreSubmittedAgain) {
  const test::VirtualClock clock;
  queue_->refuseNext(3);
  EXPECT_EQ(finished(tool(kBigScript)).front().size(), kBigLines * 7);
  EXPECT_EQ(clock.waits(), (std::vector<std::uint64_t>(3, 500'000)));
}

TEST_F(TerminalTool, refusalsToldLateKeepTheOrderAndTheSingleFinish) {
  const test::VirtualClock clock;
  queue_->holdFailures();
  queue_->refuseNext(2);
  Finished result;
  TerminalUtils::realTimeRunTerminal(tool(kBigScript), {}, queue_, result.on(queue_));
  ASSERT_TRUE(test::drain(*queue_));
  EXPECT_EQ(queue_->deliverFailures(), 2U);
  ASSERT_TRUE(test::drain(*queue_));
  ASSERT_EQ(result.texts().size(), 1U);
  EXPECT_TRUE(result.texts().front() == TerminalUtils::runTerminal(tool(kBigScript), {}));
}

TEST_F(TerminalTool, refusedFinishRunsOnce) {
  const test::VirtualClock clock;
  queue_->refuseNext(4);
  EXPECT_EQ(finished("/bin/true"), Texts{""});
  EXPECT_EQ(clock.waits(), (std::vector<std::uint64_t>(4, 500'000)));
}

TEST_F(TerminalTool, queueThatShutsDownMidwayLetsTheToolEndAndNeverCallsFinish) {
  const std::string mark = folder_.path("mark");
  const std::string gate = folder_.path("gate");
  ASSERT_EQ(::mkfifo(gate.c_str(), 0600), 0);
  const std::string path =
      tool("echo first; read line < '" + gate + "'; echo second; echo ended > '" + mark + "'");
  Finished result;
  std::jthread caller([&] { TerminalUtils::realTimeRunTerminal(path, {}, queue_, result.on(queue_)); });
  ASSERT_TRUE(test::runMainLoopUntil([&] { return queue_->accepted() >= 1; }));
  queue_->shutDown();
  std::ofstream(gate) << "go\n";
  caller.join();
  EXPECT_EQ(test::contentOf(mark), "ended\n");
  EXPECT_TRUE(result.texts().empty());
}

TEST_F(TerminalTool, toolThatClosesItsOutputAndLivesOnIsWaitedFor) {
  const std::string mark = folder_.path("mark");
  const std::string gate = folder_.path("gate");
  ASSERT_EQ(::mkfifo(gate.c_str(), 0600), 0);
  const std::string path =
      tool("echo text; exec 1>&-; read line < '" + gate + "'; echo ended > '" + mark + "'");
  std::jthread opener([&] { std::ofstream(gate) << "go\n"; });
  EXPECT_EQ(finished(path), Texts{"text\n"});
  EXPECT_EQ(test::contentOf(mark), "ended\n");
}

TEST_F(TerminalTool, shutDownQueueEndsWithoutFinish) {
  queue_->shutDown();
  Finished result;
  TerminalUtils::realTimeRunTerminal(tool("echo x"), {}, queue_, result.on(queue_));
  EXPECT_TRUE(result.texts().empty());
}

TEST_F(TerminalTool, stoppedScanInterruptsTheToolAtItsNextOutput) {
  ASSERT_TRUE(scanStatusTable().startUnlessRunning(kFeature));
  const std::string gate = folder_.path("gate");
  ASSERT_EQ(::mkfifo(gate.c_str(), 0600), 0);
  const std::string path = tool("echo before; read line < '" + gate + "'; echo after; exec /bin/sleep 1000");
  Finished result;
  std::jthread caller(
      [&] { TerminalUtilsClass(kFeature).realTimeRunTerminal(path, {}, queue_, result.on(queue_)); });
  // The first piece is on the queue: the scan may stop.
  ASSERT_TRUE(test::runMainLoopUntil([&] { return queue_->accepted() >= 1; }));
  ASSERT_TRUE(test::drain(*queue_));
  ASSERT_TRUE(scanStatusTable().suspendUnlessSuspended(kFeature));
  std::ofstream(gate) << "go\n";
  caller.join();
  ASSERT_TRUE(test::drain(*queue_));
  EXPECT_EQ(result.texts(), Texts{"before\n"});
}

TEST_F(TerminalTool, stoppedScanEndsEndlessOutput) {
  scanStatusTable().set(kFeature, ScanState::start);
  Finished result;
  std::jthread caller([&] {
    TerminalUtilsClass(kFeature).realTimeRunTerminal("/usr/bin/yes", {}, queue_, result.on(queue_));
  });
  ASSERT_TRUE(test::runMainLoopUntil([&] { return queue_->accepted() >= 1; }));
  std::atomic<bool> isBehindTheFirstPiece{false};
  queue_->submit([&] { isBehindTheFirstPiece = true; }, {});
  ASSERT_TRUE(test::runMainLoopUntil([&] { return isBehindTheFirstPiece.load(); }));
  scanStatusTable().set(kFeature, ScanState::suspend);
  caller.join();
  ASSERT_TRUE(test::drain(*queue_));
  ASSERT_EQ(result.texts().size(), 1U);
  EXPECT_FALSE(result.texts().front().empty());
}

TEST_F(TerminalTool, stoppedToolMayStillEndInItsOwnWay) {
  scanStatusTable().set(kFeature, ScanState::suspend);
  EXPECT_EQ(finishedOfFeature(tool("trap 'exit 0' INT; echo lost; while :; do :; done")), Texts{""});
}

TEST_F(TerminalTool, toolThatPrintsNothingMoreIsNotInterrupted) {
  scanStatusTable().set(kFeature, ScanState::suspend);
  const std::string mark = folder_.path("mark");
  EXPECT_EQ(finishedOfFeature(tool("exec >&-; echo ran > '" + mark + "'")), Texts{""});
  EXPECT_EQ(test::contentOf(mark), "ran\n");
}

TEST_F(TerminalTool, scanOfAnotherFeatureDoesNotInterrupt) {
  scanStatusTable().set(kFeature + 1, ScanState::suspend);
  EXPECT_EQ(finishedOfFeature(tool("echo text")), Texts{"text\n"});
}

TEST_F(TerminalTool, classLevelFormLooksAtNoScan) {
  scanStatusTable().set(kFeature, ScanState::suspend);
  EXPECT_EQ(TerminalUtilsClass(kFeature).runTerminal(tool("echo text"), {}), "text\n");
  EXPECT_EQ(finished(tool("echo text")), Texts{"text\n"});
}

TEST_F(TerminalTool, stopKillsAToolThatPrintsNothingMoreAndKeepsItsWholeLines) {
  scanStatusTable().set(kFeature, ScanState::start);
  const std::string path = tool("trap '' INT; printf 'one\\ntwo'; exec /bin/sleep 1000");
  Finished result;
  std::jthread caller(
      [&] { TerminalUtilsClass(kFeature).runUntilStopped(path, {}, queue_, result.on(queue_)); });
  ASSERT_TRUE(test::runMainLoopUntil([&] { return queue_->accepted() >= 1; }));
  scanStatusTable().set(kFeature, ScanState::suspend);
  caller.join();
  ASSERT_TRUE(test::drain(*queue_));
  EXPECT_EQ(result.texts(), Texts{"one\n"});
}

TEST_F(TerminalTool, stopBeforeTheToolStartsEndsItToo) {
  scanStatusTable().set(kFeature, ScanState::suspend);
  Finished result;
  TerminalUtilsClass(kFeature).runUntilStopped("/bin/sleep", {"1000"}, queue_, result.on(queue_));
  ASSERT_TRUE(test::drain(*queue_));
  EXPECT_EQ(result.texts(), Texts{""});
}

TEST_F(TerminalTool, toolThatRunsUntilAStopReportsThatItCouldNotBeStarted) {
  Finished result;
  const TerminalUtilsClass tools(kFeature);
  EXPECT_EQ(tools.runUntilStopped(folder_.path("missing"), {}, queue_, result.on(queue_)), ENOENT);
  EXPECT_EQ(tools.runUntilStopped(folder_.file("text", "x"), {}, queue_, result.on(queue_)), EACCES);
  ASSERT_TRUE(test::drain(*queue_));
  EXPECT_EQ(result.texts(), Texts());
  EXPECT_EQ(tools.runUntilStopped("/bin/true", {}, queue_, result.on(queue_)), 0);
  ASSERT_TRUE(test::drain(*queue_));
  EXPECT_EQ(result.texts(), Texts{""});
}

TEST_F(TerminalTool, toolThatRunsUntilAStopGivesItsWholeOutputWithoutOne) {
  scanStatusTable().set(kFeature + 1, ScanState::suspend);
  Finished result;
  TerminalUtilsClass(kFeature).runUntilStopped(tool("printf 'one\\ntwo'"), {}, queue_, result.on(queue_));
  ASSERT_TRUE(test::drain(*queue_));
  EXPECT_EQ(result.texts(), Texts{"one\ntwo"});
}

/// With a log, and a limit of ten bytes.
class CutOutput : public TerminalTool {
 protected:
  CutOutput() {
    Host::install(Host::macVolume(folder_.folder("volume"), "alice", {"org.example.test", "", {}}));
    LogService::resetForTesting();
    TerminalUtils::setOutputLimitForTesting(10);
  }
  ~CutOutput() override {
    TerminalUtils::setOutputLimitForTesting(ChildLimits{}.output);
    LogService::resetForTesting();
  }
  static bool isLogged(const std::string& path) {
    LogService::shard().flushForTesting();
    return test::contentOf(LogService::shard().logPath.path())
               .find(":Info>:TerminalUtils output cut at 10 bytes: " + path + "\n") != std::string::npos;
  }
};

TEST_F(CutOutput, isToldInTheLogAndEndsWithAWholeLine) {
  const std::string path = tool("printf 'first\\nsecond\\n'");
  EXPECT_EQ(TerminalUtils::runTerminal(path, {}), "first\n");
  EXPECT_TRUE(isLogged(path));
}

TEST_F(CutOutput, ofAToolThatIsReadAsItRunsIsToldToo) {
  const std::string path = tool("printf 'first\\nsecond\\n'");
  EXPECT_EQ(finished(path), Texts{"first\n"});
  EXPECT_TRUE(isLogged(path));
}

TEST_F(CutOutput, isNotToldOfOutputThatJustFits) {
  const std::string path = tool("printf '123456789\\n'");
  EXPECT_EQ(finished(path), Texts{"123456789\n"});
  EXPECT_FALSE(isLogged(path));
}

TEST_F(TerminalTool, manyToolsAtOnceOnOneQueue) {
  const std::string path = tool("echo \"$1\"");
  Finished result;
  {
    std::vector<std::jthread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&, t] {
        for (int i = 0; i < 10; ++i) {
          TerminalUtils::realTimeRunTerminal(path, {std::to_string(t * 10 + i)}, queue_, result.on(queue_));
        }
      });
    }
  }
  ASSERT_TRUE(test::drain(*queue_));
  Texts texts = result.texts();
  std::sort(texts.begin(), texts.end(),
            [](const auto& a, const auto& b) { return std::stoi(a) < std::stoi(b); });
  ASSERT_EQ(texts.size(), 40U);
  for (std::size_t i = 0; i < texts.size(); ++i) EXPECT_EQ(texts[i], std::to_string(i) + "\n");
}

}  // namespace
}  // namespace sorrel
