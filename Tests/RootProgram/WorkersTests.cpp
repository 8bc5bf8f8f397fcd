#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>

#include "Tests/Helper/HelperServiceKit.hpp"

namespace sorrel::helper {
namespace {

namespace fs = std::filesystem;
using namespace test;

using Workers = HelperServiceKit;

/// Starts a helper whose workers' removals are tampered with, as strace -e inject=unlinkat has it.
HelperMachine::Setup withInjection(const std::string& injection) {
  HelperMachine::Setup setup;
  setup.tracer = kTracer + " -o /dev/null -e trace=unlinkat -e inject=unlinkat:" + injection;
  return setup;
}

TEST_F(Workers, aWorkerKilledInMidEventGivesOneSoundReply) {
  start(withInjection("signal=SIGKILL:when=3"));
  HelperDictionary event;
  for (int i = 0; i < 5; ++i)
    event.emplace(rootsFile("file" + std::to_string(i)), HelperDictionary{{"0", i}});
  const Answer answer = machine->ask(kDelete, event);
  ASSERT_TRUE(answer.isThere) << machine->log();
  EXPECT_FALSE(answer.flag);
  ASSERT_EQ(answer.dictionary.size(), 5U);
  int removed = 0;
  for (const auto& [key, value] : answer.dictionary) {
    const HelperDictionary& entry = *value.asDictionary();
    const std::int64_t number = *entry.at("0").asNumber();
    const bool isDone = *entry.at("DeleteStatus").asNumber() == 0;
    EXPECT_EQ(isDone, number < 2);
    EXPECT_EQ(*entry.at("DeleteStatus").asNumber(), isDone ? 0 : 2);
    // Nothing is called done that is still there. What went as the worker died may be called failed.
    EXPECT_FALSE(isDone && fs::exists(machine->folder().path("file" + std::to_string(number))));
    removed += fs::exists(machine->folder().path("file" + std::to_string(number))) ? 0 : 1;
  }
  EXPECT_LE(removed, 3);
  EXPECT_TRUE(machine->waitForLog("killed"));
  // The helper itself goes on.
  EXPECT_TRUE(machine->ask(kDelete, kNowhere).isThere);
}

TEST_F(Workers, aWorkerWhoseCallerLeftIsKilledAfterItsTime) {
  HelperMachine::Setup setup = withInjection("delay_enter=60000000");
  setup.configuration = "grace-seconds = 0\n";
  start(setup);
  const std::string file = rootsFile("kept");
  auto caller = std::make_unique<test::LeavingCaller>(*machine, kDelete,
                                                      codedEvent({{file, HelperDictionary{{"0", 1}}}}));
  ASSERT_TRUE(machine->waitForLog(" start"));
  caller.reset();
  EXPECT_TRUE(machine->waitForLog("done=0 failed=1 flag=0 code=2"));
  EXPECT_TRUE(machine->waitForLog("killed"));
}

TEST_F(Workers, aWorkerWhoseCallerLeftHasTimeToEnd) {
  start(withInjection("delay_enter=100000"));
  const std::string file = rootsFile("gone");
  auto caller = std::make_unique<test::LeavingCaller>(*machine, kDelete,
                                                      codedEvent({{file, HelperDictionary{{"0", 1}}}}));
  ASSERT_TRUE(machine->waitForLog(" start"));
  caller.reset();
  EXPECT_TRUE(machine->waitForLog("done=1 failed=0 flag=1"));
  EXPECT_FALSE(fs::exists(file));
}

TEST_F(Workers, aStopKillsTheWorkerAndAnswers) {
  start(withInjection("delay_enter=60000000"));
  auto waiting = test::send(*helper(), kDelete, {{rootsFile("kept"), HelperDictionary{{"0", 1}}}});
  ASSERT_TRUE(machine->waitForLog(" start"));
  machine->kill(SIGTERM);
  const Answer answer = test::take(std::move(waiting));
  EXPECT_TRUE(answer.isThere);
  EXPECT_FALSE(answer.flag);
  EXPECT_EQ(answer.dictionary.size(), 1U);
  EXPECT_TRUE(machine->waitUntilHelperIsGone());
}

}  // namespace
}  // namespace sorrel::helper
