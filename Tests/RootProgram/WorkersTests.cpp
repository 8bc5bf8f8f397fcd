#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>

#include "Tests/Helper/HelperServiceKit.hpp"
#include "Tests/Helper/RawCaller.hpp"
#include "Tests/Support/MainLoop.hpp"

namespace sorrel::helper {
namespace {

namespace fs = std::filesystem;
using namespace test;

using Workers = HelperServiceKit;

/// Starts a helper whose workers' removals are manipulated, by strace -e inject=unlinkat.
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
    // No existing item is reported as done. An item removed as the worker died may be reported as failed.
    EXPECT_FALSE(isDone && fs::exists(machine->folder().path("file" + std::to_string(number))));
    removed += fs::exists(machine->folder().path("file" + std::to_string(number))) ? 0 : 1;
  }
  EXPECT_LE(removed, 3);
  EXPECT_TRUE(machine->waitForLog("killed"));
  // The helper itself continues.
  EXPECT_TRUE(machine->ask(kDelete, kNowhere).isThere);
}

TEST_F(Workers, aWorkerWhoseCallerLeftIsKilledAtOnce) {
  start(withInjection("delay_enter=60000000"));
  const std::string file = rootsFile("kept");
  auto caller = std::make_unique<RawCaller>(machine->address());
  caller->runUnanswered(caller->fill(kDelete, codedEvent({{file, HelperDictionary{{"0", 1}}}})).number);
  ASSERT_TRUE(machine->waitForLog(" start"));
  caller.reset();
  EXPECT_TRUE(machine->waitForLog("done=0 failed=1 flag=0 code=2"));
  EXPECT_TRUE(machine->waitForLog("killed"));
}

TEST_F(Workers, aUsersStopKillsTheWorkerAtOnceAndIsAnswered) {
  start(withInjection("signal=SIGSTOP:when=3"));
  HelperDictionary event;
  for (int i = 0; i < 5; ++i)
    event.emplace(rootsFile("file" + std::to_string(i)), HelperDictionary{{"0", i}});
  auto waiting = test::send(*helper(), kDelete, event);
  ASSERT_TRUE(runMainLoopUntil([this] { return !fs::exists(machine->folder().path("file1")); }));
  EXPECT_TRUE(connections.back()->stopEvents());
  const Answer answer = test::take(std::move(waiting));
  ASSERT_TRUE(answer.isThere) << machine->log();
  EXPECT_FALSE(answer.flag);
  for (const auto& [key, value] : answer.dictionary) {
    const HelperDictionary& entry = *value.asDictionary();
    const std::string file = "file" + std::to_string(*entry.at("0").asNumber());
    EXPECT_EQ(*entry.at("DeleteStatus").asNumber() == 0, !fs::exists(machine->folder().path(file))) << file;
  }
  EXPECT_TRUE(fs::exists(machine->folder().path("file4")));
  EXPECT_TRUE(machine->waitForLog("killed"));
  EXPECT_FALSE(connections.back()->stopEvents()) << "nothing is under way";
}

TEST_F(Workers, aStopTakesTheQuestionBack) {
  startScripted(ScriptedPolkit::Mode::Wait);
  auto waiting = test::send(*helper(), kDelete, kNowhere);
  ASSERT_TRUE(machine->polkit().waitForQuestions(1));
  EXPECT_TRUE(connections.back()->stopEvents());
  const Answer answer = test::take(std::move(waiting));
  ASSERT_EQ(answer.dictionary.size(), 1U);
  EXPECT_EQ(*answer.dictionary.begin()->second.asDictionary()->at("DeleteDesc").asText(),
            "The operation was stopped.");
  EXPECT_TRUE(runMainLoopUntil([this] { return machine->polkit().cancellations().size() == 1; }));
}

TEST_F(Workers, aStopOfAnotherConnectionStopsNothing) {
  startScripted(ScriptedPolkit::Mode::Wait);
  auto waiting = test::send(*helper(), kDelete, kNowhere);
  ASSERT_TRUE(machine->polkit().waitForQuestions(1));
  RawCaller(machine->address()).stop();
  EXPECT_TRUE(machine->polkit().cancellations().empty());
  machine->polkit().answerAll(true);
  EXPECT_TRUE(test::take(std::move(waiting)).isThere);
  EXPECT_TRUE(machine->waitForLog(" start"));
}

TEST_F(Workers, theLossOfTheSupervisorIsReportedFromTheDisk) {
  start(withInjection("signal=SIGSTOP:when=3"));
  DBusHelperConnection::repliesToLostEvents = true;
  HelperDictionary event;
  for (int i = 0; i < 5; ++i)
    event.emplace(rootsFile("file" + std::to_string(i)), HelperDictionary{{"0", i}});
  auto waiting = test::send(*helper(), kDelete, event);
  ASSERT_TRUE(runMainLoopUntil([this] { return !fs::exists(machine->folder().path("file1")); }));
  machine->kill(SIGKILL);
  const Answer answer = test::take(std::move(waiting));
  DBusHelperConnection::repliesToLostEvents = false;
  ASSERT_EQ(answer.dictionary.size(), 5U);
  EXPECT_FALSE(answer.flag);
  EXPECT_EQ(*lost, 1);
  for (const auto& [path, value] : answer.dictionary) {
    const HelperDictionary& entry = *value.asDictionary();
    EXPECT_EQ(*entry.at("DeleteStatus").asNumber() == 0, !fs::exists(path)) << path;
    EXPECT_EQ(*entry.at("DeleteDesc").asText() == "", !fs::exists(path)) << path;
  }
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
