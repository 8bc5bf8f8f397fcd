#include "Helper/Authority.hpp"

#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "SorrelFramework/HelpTool/HelperWireNames.hpp"
#include "Tests/Helper/HelperServiceKit.hpp"
#include "Tests/Helper/RawCaller.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/MainLoop.hpp"

namespace sorrel::helper {
namespace {

namespace fs = std::filesystem;
using namespace test;

using AuthorityTest = HelperServiceKit;

// --- the caller ---

TEST_F(AuthorityTest, theSubjectIsTheBusNameOfTheSender) {
  start({});
  connections.push_back(machine->connect());
  machine->ask(kDelete, kNowhere);
  const auto questions = machine->polkit().questions();
  ASSERT_EQ(questions.size(), 1U);
  EXPECT_EQ(questions[0].subjectKind, "system-bus-name");
  EXPECT_TRUE(questions[0].subjectName.starts_with(":1."));
  EXPECT_NE(questions[0].subjectName, questions[0].sender);
  EXPECT_TRUE(machine->waitForLog("sender=" + questions[0].subjectName));
  EXPECT_EQ(questions[0].flags, 1U);
  EXPECT_EQ(questions[0].details, (std::map<std::string, std::string>{{"items", "1 item"}}));
}

TEST_F(AuthorityTest, eachKindHasItsAction) {
  startScripted(ScriptedPolkit::Mode::No);
  machine->ask(kDelete, kNowhere);
  machine->ask(kShred, kNowhere);
  for (const int operation : {0, 1, 2}) machine->ask(kMaintenance, {{"OperationValue", operation}});
  machine->ask(kMaintenance, {{"OperationValue", 3}});
  std::vector<std::string> actions;
  for (const auto& question : machine->polkit().questions()) {
    actions.push_back(question.action.substr(kService.size()));
  }
  EXPECT_EQ(actions, (std::vector<std::string>{".delete", ".shred", ".maintenance", ".maintenance", ".delete",
                                               ".move"}));
}

TEST_F(AuthorityTest, aMaintenanceEventWithPathsAsksForADeletionWithTheirNumber) {
  startScripted(ScriptedPolkit::Mode::No);
  machine->ask(kMaintenance,
               {{"OperationValue", 2}, {"/none/a", HelperDictionary()}, {"/none/b", HelperDictionary()}});
  const auto questions = machine->polkit().questions();
  ASSERT_EQ(questions.size(), 1U);
  EXPECT_EQ(questions[0].action, kService + ".delete");
  EXPECT_EQ(questions[0].details, (std::map<std::string, std::string>{{"items", "2 items"}}));
}

/// The message of an action as the user reads it: polkit inserts the details.
std::string shownMessage(const ScriptedPolkit::Question& question) {
  const std::string policy = contentOf("/usr/share/polkit-1/actions/" + kService + ".policy");
  const std::size_t action = policy.find("<action id=\"" + question.action + "\">");
  const std::size_t begin = policy.find("<message>", action) + std::string("<message>").size();
  std::string message = policy.substr(begin, policy.find("</message>", begin) - begin);
  for (const auto& [name, value] : question.details) {
    const std::string place = "$(" + name + ")";
    if (const std::size_t at = message.find(place); at != std::string::npos) {
      message.replace(at, place.size(), value);
    }
  }
  return message;
}

TEST_F(AuthorityTest, theMessageCountsOneItemAndSeveral) {
  startScripted(ScriptedPolkit::Mode::No);
  const HelperDictionary two = {{"/none/a", HelperDictionary()}, {"/none/b", HelperDictionary()}};
  machine->ask(kDelete, kNowhere);
  machine->ask(kDelete, two);
  machine->ask(kShred, kNowhere);
  machine->ask(kShred, two);
  const HelperDictionary target = {{"ToPath", "/none/c"}};
  machine->ask(kMaintenance, {{"OperationValue", 3}, {"/none/a", target}});
  machine->ask(kMaintenance, {{"OperationValue", 3}, {"/none/a", target}, {"/none/b", target}});
  machine->ask(kMaintenance, {{"OperationValue", 0}});
  std::vector<std::string> messages;
  for (const auto& question : machine->polkit().questions()) messages.push_back(shownMessage(question));
  EXPECT_EQ(messages, (std::vector<std::string>{
                          "Authentication is required to delete 1 item that your own rights do not reach",
                          "Authentication is required to delete 2 items that your own rights do not reach",
                          "Authentication is required to overwrite and delete 1 item beyond recovery",
                          "Authentication is required to overwrite and delete 2 items beyond recovery",
                          "Authentication is required to move 1 extension of the system",
                          "Authentication is required to move 2 extensions of the system",
                          "Authentication is required to maintain the system"}));
}

TEST_F(AuthorityTest, eachKindOfNoHasItsReason) {
  using Mode = ScriptedPolkit::Mode;
  startScripted(Mode::No);
  const std::string file = rootsFile("kept");
  for (const auto& [mode, reason] :
       std::vector<std::pair<Mode, std::string>>{{Mode::No, "not-authorised"},
                                                 {Mode::WrongPassword, "wrong-password"},
                                                 {Mode::NoAgent, "no-agent"},
                                                 {Mode::NeverAsked, "never-asked"},
                                                 {Mode::Error, "no-authority"}}) {
    machine->polkit().setMode(mode);
    const auto answer = machine->askRaw(kDelete, codedEvent({{file, HelperDictionary{{"0", 1}}}}));
    EXPECT_EQ(answer.refusal, reason);
    EXPECT_TRUE(fs::exists(file)) << reason;
  }
}

TEST_F(AuthorityTest, aYesToTheQuestionWhyThereWasNoneIsANo) {
  startScripted(ScriptedPolkit::Mode::LateYes);
  const std::string file = rootsFile("kept");
  const auto answer = machine->askRaw(kDelete, codedEvent({{file, HelperDictionary{{"0", 1}}}}));
  EXPECT_EQ(answer.refusal, "not-authorised");
  EXPECT_TRUE(fs::exists(file));
  EXPECT_EQ(machine->polkit().questions().size(), 2U);
}

TEST_F(AuthorityTest, theQuestionWhyThereWasNoYesAsksNoUser) {
  startScripted(ScriptedPolkit::Mode::WrongPassword);
  machine->ask(kDelete, kNowhere);
  const auto questions = machine->polkit().questions();
  ASSERT_EQ(questions.size(), 2U);
  EXPECT_EQ(questions[1].flags, 0U);
  EXPECT_EQ(questions[1].subjectName, questions[0].subjectName);
  EXPECT_EQ(questions[1].action, questions[0].action);
}

TEST_F(AuthorityTest, anErrorOfPolkitIsARefusal) {
  startScripted(ScriptedPolkit::Mode::Error);
  const std::string file = rootsFile("kept");
  const Answer answer = machine->ask(kDelete, {{file, HelperDictionary{{"0", 1}}}});
  EXPECT_TRUE(answer.isThere);
  EXPECT_FALSE(answer.flag);
  EXPECT_TRUE(fs::exists(file));
  EXPECT_TRUE(machine->waitForLog("refused: no-authority"));
}

TEST_F(AuthorityTest, withoutPolkitEverythingIsRefused) {
  HelperMachine::Setup setup;
  setup.polkit = HelperMachine::Polkit::None;
  start(setup);
  const std::string file = rootsFile("kept");
  const Answer answer = machine->ask(kDelete, {{file, HelperDictionary{{"0", 1}}}});
  EXPECT_TRUE(answer.isThere);
  EXPECT_FALSE(answer.flag);
  EXPECT_TRUE(fs::exists(file));
}

TEST_F(AuthorityTest, aCallerThatLeavesDuringTheQuestionHasSentNothing) {
  startScripted(ScriptedPolkit::Mode::Wait);
  const std::string file = rootsFile("kept");
  auto caller = std::make_unique<RawCaller>(machine->address());
  caller->beginUnanswered({kDelete, HelperWireNames::noOperation, 1, 100});
  ASSERT_TRUE(machine->polkit().waitForQuestions(1));
  caller.reset();
  ASSERT_TRUE(machine->waitForLog("refused: caller-left"));
  EXPECT_TRUE(test::runMainLoopUntil([this] { return machine->polkit().cancellations().size() == 1; }));
  machine->polkit().answerAll(true);
  // The next call is served after anything that the late yes could have started.
  machine->polkit().setMode(ScriptedPolkit::Mode::No);
  EXPECT_TRUE(machine->ask(kDelete, kNowhere).isThere);
  EXPECT_TRUE(fs::exists(file));
  EXPECT_EQ(machine->log().find(" start"), std::string::npos);
}

TEST_F(AuthorityTest, aPasswordMayTakeMinutes) {
  const std::string trace = "/mnt/trace";
  fs::remove(trace);
  HelperMachine::Setup setup;
  setup.mode = ScriptedPolkit::Mode::Wait;
  setup.tracer = kTracer + " -qq -e trace=poll,ppoll -o " + trace;
  start(setup);
  auto waiting = send(*helper(), kDelete, kNowhere);
  ASSERT_TRUE(machine->polkit().waitForQuestions(1));
  // How long it sleeps without an event, in milliseconds. After that the next helper asks again.
  EXPECT_TRUE(runMainLoopUntil([&] {
    const std::string calls = contentOf(trace);
    const std::size_t last = calls.rfind("], 2, ");
    return last != std::string::npos && last + 6 < calls.size() &&
           calls.find(')', last) == std::string::npos && std::atol(calls.c_str() + last + 6) > 8 * 60 * 1000;
  })) << contentOf(trace);
  machine->polkit().answerAll(true);
  const Answer answer = take(std::move(waiting));
  EXPECT_TRUE(answer.isThere);
  EXPECT_TRUE(machine->waitForLog(" start"));
}

TEST_F(AuthorityTest, aCallerThatSeesAnotherFileUnderTheNameLosesNone) {
  start({});
  const std::string file = rootsFile("place/file");
  const std::string place = machine->folder().path("place");
  const std::string told = inMountingChild([&]() -> std::string {
    if (::mount("tmpfs", place.c_str(), "tmpfs", 0, nullptr) != 0) return "skip";
    std::ofstream(file) << "the caller's own";
    const Answer answer = machine->askRaw(kDelete, codedEvent({{file, HelperDictionary{{"0", 1}}}}));
    if (!answer.isThere || answer.flag || answer.dictionary.size() != 1) return "no answer";
    const auto* entry = answer.dictionary.begin()->second.asDictionary();
    if (*entry->at("DeleteStatus").asNumber() != 2) return "done";
    return fs::exists(file) ? "refused" : "gone";
  });
  if (told == "skip") GTEST_SKIP() << "needs the right to mount";
  EXPECT_EQ(told, "refused") << machine->log();
  EXPECT_EQ(contentOf(file), "content");
}

// --- with the real polkit ---

class HelperServiceWithPolkit : public AuthorityTest {
 protected:
  static constexpr std::uint32_t kYes = test::kAlice;
  static constexpr std::uint32_t kNo = test::kBob;

  void SetUp() override {
    AuthorityTest::SetUp();
    if (IsSkipped()) return;
    HelperMachine::Setup setup;
    setup.polkit = HelperMachine::Polkit::Real;
    setup.rules = "if (action.id == '" + kService +
                  ".delete' && subject.user == 'user10001') return polkit.Result.YES;"
                  " if (action.id.indexOf('" +
                  kService + "') == 0 && subject.user == 'user10002') return polkit.Result.NO;";
    setup.tracer = tracer;
    start(setup);
  }

  std::string tracer;
};

TEST_F(HelperServiceWithPolkit, aYesStartsTheWork) {
  const Answer answer = machine->askAs(kYes, kDelete, kNowhere);
  EXPECT_TRUE(answer.isThere) << machine->log();
  EXPECT_TRUE(machine->waitForLog("uid=10001"));
  EXPECT_TRUE(machine->waitForLog("kind=delete paths=1 start")) << machine->log();
}

TEST_F(HelperServiceWithPolkit, aYesRemovesWhatIsNamedAndNothingElse) {
  const std::string file = rootsFile("folder/named\xff");
  const std::string other = rootsFile("folder/other");
  const std::string folder = machine->folder().folder("folder/below/deep");
  for (const char* name : {"folder", "folder/below"}) ::chmod(machine->folder().path(name).c_str(), 0755);
  const Answer answer = machine->askAs(kYes, kDelete,
                                       {{file, HelperDictionary{{"0", 1}}},
                                        {machine->folder().path("folder/below"), HelperDictionary{{"0", 2}}},
                                        {"/usr/bin/true", HelperDictionary{{"0", 3}}}});
  ASSERT_TRUE(answer.isThere) << machine->log();
  EXPECT_FALSE(fs::exists(file));
  EXPECT_FALSE(fs::exists(folder));
  EXPECT_TRUE(fs::exists(other));
  EXPECT_TRUE(fs::exists("/usr/bin/true"));
  std::vector<std::int64_t> statuses;
  for (const auto& [key, entry] : answer.dictionary) {
    statuses.push_back(*entry.asDictionary()->at("DeleteStatus").asNumber());
  }
  EXPECT_EQ(statuses, (std::vector<std::int64_t>{0, 0, 2})) << machine->log();
  // This one was authorised: the text must not claim otherwise.
  EXPECT_EQ(*answer.dictionary.at("0000002").asDictionary()->at("DeleteDesc").asText(),
            "This item isn’t one that may be changed this way.");
  EXPECT_FALSE(answer.flag);
  EXPECT_TRUE(machine->waitForLog("done=2 failed=1"));
  EXPECT_TRUE(machine->waitForLog("path=\"/usr/bin/true\""));
}

TEST_F(HelperServiceWithPolkit, aNoTouchesNothing) {
  const std::string file = rootsFile("kept");
  const Answer answer = machine->askAs(kNo, kDelete, {{file, HelperDictionary{{"0", 1}}}});
  EXPECT_EQ(answer.refusal, "never-asked");
  EXPECT_TRUE(fs::exists(file));
  EXPECT_TRUE(machine->waitForLog("refused: never-asked"));
  EXPECT_EQ(machine->log().find(" start"), std::string::npos);
}

TEST_F(HelperServiceWithPolkit, aYesToOneKindIsNoneToAnother) {
  const Answer answer = machine->askAs(kYes, kShred, kNowhere);
  EXPECT_EQ(answer.refusal, "never-asked");
  EXPECT_EQ(machine->log().find(" start"), std::string::npos);
}

TEST_F(HelperServiceWithPolkit, whoeverTheRulesDoNotNameIsRefused) {
  EXPECT_FALSE(machine->askAs(test::kCarol, kDelete, kNowhere).flag);
  EXPECT_TRUE(machine->waitForLog("refused: never-asked"));
}

TEST_F(HelperServiceWithPolkit, aUserInTheMessageCountsForNothing) {
  // There is no field for one: an event with anything besides the defined form is refused as a whole.
  for (const char* key : {"uid", "UnixUserID", "sender", "pid"}) {
    EXPECT_NE(machine->askAs(kNo, kDelete, {{"/nowhere", HelperDictionary{{key, 10001}}}}).refusal, "");
  }
  EXPECT_EQ(machine->log().find("uid=10001"), std::string::npos);
}

TEST_F(HelperServiceWithPolkit, nobodyButRootCanOwnTheName) {
  const std::string text = test::inUser(kYes, [this] {
    try {
      sdbus::createSessionBusConnectionWithAddress(machine->address())->requestName(kService);
      return std::string("owned");
    } catch (const sdbus::Error& error) {
      return error.getName();
    }
  });
  EXPECT_EQ(text, "org.freedesktop.DBus.Error.AccessDenied");
}

TEST_F(HelperServiceWithPolkit, noOtherInterfaceOfTheHelperCanBeReached) {
  const std::string text = test::inUser(kYes, [this] {
    const auto connection = sdbus::createSessionBusConnectionWithAddress(machine->address());
    const auto proxy = sdbus::createProxy(*connection, kService, HelperWireNames(kService).objectPath);
    try {
      proxy->callMethod("GetAll")
          .onInterface("org.freedesktop.DBus.Properties")
          .withArguments(std::string("x"));
      return std::string("answered");
    } catch (const sdbus::Error& error) {
      return error.getName();
    }
  });
  EXPECT_EQ(text, "org.freedesktop.DBus.Error.AccessDenied");
}

TEST_F(AuthorityTest, nothingIsLookedAtBeforeTheYes) {
  HelperMachine::Setup setup;
  setup.mode = ScriptedPolkit::Mode::No;
  const std::string trace = "/mnt/trace";
  setup.tracer = kTracer + " -o " + trace + " -s 4096";
  start(setup);
  const std::string file = rootsFile("secret-name");
  EXPECT_FALSE(machine->ask(kDelete, {{file, HelperDictionary{{"0", 1}}}}).flag);
  machine->kill(SIGTERM);
  ASSERT_TRUE(machine->waitUntilHelperIsGone());
  std::string calls = test::contentOf(trace);
  EXPECT_NE(calls.find("CheckAuthorization"), std::string::npos);
  EXPECT_EQ(calls.find(machine->folder().path() + "/s"), std::string::npos);
  // The log contains no path of a refused call either.
  EXPECT_EQ(calls.find("secret-name"), std::string::npos);
}

}  // namespace
}  // namespace sorrel::helper
