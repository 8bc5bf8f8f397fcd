#include "Helper/HelperService.hpp"

#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/HelpTool/HelperWireNames.hpp"
#include "SorrelFramework/HelpTool/MessageView.hpp"
#include "SorrelFramework/HelpTool/PrivilegeHelper.hpp"
#include "SorrelFramework/HelpTool/SystemHelperInstallation.hpp"
#include "SorrelFramework/Platform/ChildProcess.hpp"
#include "SorrelFramework/Platform/Host.hpp"
#include "Tests/Helper/HelperKit.hpp"
#include "Tests/Support/MainLoop.hpp"

namespace sorrel::helper {
namespace {

namespace fs = std::filesystem;
using test::Answer;
using test::HelperMachine;
using test::kService;
using test::ScriptedPolkit;

constexpr std::int32_t kDelete = 0;
constexpr std::int32_t kShred = 1;
constexpr std::int32_t kMaintenance = 2;
constexpr std::int32_t kClose = 3;
constexpr auto kNoCause = static_cast<std::int32_t>(HelperEventErrorID::NoCause);
constexpr const char* kRefused = "The operation was not authorised.";

const HelperDictionary kNowhere = {{"/nowhere/at/all", HelperDictionary()}};

std::string codedEvent(const HelperDictionary& event) {
  HelperMessage message{HelperMessage::Kind::Event, event, {}};
  for (const auto& [key, value] : event) message.views.push_back(viewOf(key));
  return encodeHelperMessage(message).value_or("");
}

/// A line of /proc/PID/status, without its name.
std::string statusOf(pid_t process, const std::string& name) {
  std::ifstream file("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(name + ":\t")) return line.substr(name.size() + 2);
  }
  return "";
}

class HelperServiceTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!test::whyNoMachine().empty()) GTEST_SKIP() << test::whyNoMachine();
  }
  HelperMachine& start(const HelperMachine::Setup& setup) {
    machine = std::make_unique<HelperMachine>(setup);
    return *machine;
  }
  HelperMachine& startScripted(ScriptedPolkit::Mode mode, const std::string& configuration = "") {
    HelperMachine::Setup setup;
    setup.mode = mode;
    setup.configuration = configuration;
    return start(setup);
  }
  /// A helper, with the connection that it needs.
  std::shared_ptr<HelperProtocol> helper() {
    connections.push_back(machine->connect());
    auto proxy = connections.back()->remoteObjectProxyWithErrorHandler([lost = lost] { ++*lost; });
    EXPECT_NE(proxy, nullptr) << machine->log();
    return proxy;
  }
  std::string rootsFile(const std::string& name) {
    const std::string file = machine->folder().file(name, "content");
    ::chmod(file.c_str(), 0600);
    return file;
  }

  std::unique_ptr<HelperMachine> machine;
  std::vector<std::shared_ptr<HelperConnection>> connections;
  std::shared_ptr<std::atomic<int>> lost = std::make_shared<std::atomic<int>>(0);  // proxies outlive the test
};

TEST_F(HelperServiceTest, theBusStartsItAndItTellsItsVersion) {
  start({});
  std::promise<std::string> version;
  helper()->getHelperVersion([&](const std::string& text) { version.set_value(text); });
  EXPECT_EQ(version.get_future().get(), SORREL_VERSION);
  EXPECT_TRUE(machine->polkit().questions().empty());
}

// --- the forms of a refusal ---

TEST_F(HelperServiceTest, aRefusedDeleteListsEachPathWithTheNumbersOfTheSender) {
  startScripted(ScriptedPolkit::Mode::No);
  const Answer answer = machine->ask(kDelete, {{"/nowhere/a\xff", HelperDictionary{{"0", 7}, {"1", -8}}},
                                               {"/nowhere/b", HelperDictionary{{"10", 9}}}});
  ASSERT_TRUE(answer.isThere) << machine->log();
  EXPECT_FALSE(answer.flag);
  EXPECT_EQ(answer.code, kNoCause);
  const HelperDictionary first{{"0", 7}, {"1", -8}, {"DeleteStatus", 2}, {"DeleteDesc", kRefused}};
  const HelperDictionary second{{"10", 9}, {"DeleteStatus", 2}, {"DeleteDesc", kRefused}};
  EXPECT_TRUE(answer.dictionary == (HelperDictionary{{"0000000", first}, {"0000001", second}}));
}

TEST_F(HelperServiceTest, aRefusedShredListsEachPath) {
  startScripted(ScriptedPolkit::Mode::No);
  const Answer answer = machine->ask(kShred, {{"/nowhere/a\xff", HelperDictionary()}});
  EXPECT_FALSE(answer.flag);
  const HelperDictionary entry{{"Path", "/nowhere/a\xff"}, {"DeleteStatus", 4}, {"DeleteDesc", kRefused}};
  EXPECT_TRUE(answer.dictionary == (HelperDictionary{{"0000000", entry}}));
}

TEST_F(HelperServiceTest, refusedMaintenanceListsEachPathUnderItself) {
  startScripted(ScriptedPolkit::Mode::No);
  const Answer clean = machine->ask(
      kMaintenance, {{"OperationValue", 2}, {"/a", HelperDictionary()}, {"/b", HelperDictionary()}});
  const HelperDictionary notDeleted{{"DeleteStatus", 2}, {"DeleteDesc", kRefused}};
  EXPECT_FALSE(clean.flag);
  EXPECT_TRUE(clean.dictionary == (HelperDictionary{{"/a", notDeleted}, {"/b", notDeleted}}));
  const Answer move =
      machine->ask(kMaintenance, {{"OperationValue", 3}, {"/a", HelperDictionary{{"ToPath", "/b"}}}});
  const HelperDictionary notMoved{{"DeleteStatus", 5}, {"DeleteDesc", kRefused}};
  EXPECT_FALSE(move.flag);
  EXPECT_TRUE(move.dictionary == (HelperDictionary{{"/a", notMoved}}));
  const Answer dns = machine->ask(kMaintenance, {{"OperationValue", 0}});
  EXPECT_TRUE(dns.isThere);
  EXPECT_FALSE(dns.flag);
  EXPECT_EQ(dns.code, kNoCause);
  EXPECT_TRUE(dns.dictionary.empty());
}

// --- messages ---

TEST_F(HelperServiceTest, unsealedMemoryIsRefused) {
  start({});
  const std::string event = codedEvent(kNowhere);
  const Answer answer = machine->askRaw(kDelete, event, false);
  EXPECT_TRUE(answer.isThere);
  EXPECT_FALSE(answer.flag);
  EXPECT_EQ(answer.code, kNoCause);
  EXPECT_TRUE(answer.dictionary.empty());
  EXPECT_TRUE(machine->polkit().questions().empty());
  EXPECT_TRUE(machine->waitForLog("refused: unsound-message"));
}

TEST_F(HelperServiceTest, anUnknownEventIsRefusedWithoutAQuestion) {
  start({});
  for (const std::int32_t id : {-1, 4, INT32_MAX, INT32_MIN}) {
    const Answer answer = machine->askRaw(id, codedEvent(kNowhere));
    EXPECT_TRUE(answer.isThere) << id;
    EXPECT_FALSE(answer.flag);
    EXPECT_EQ(answer.code, kNoCause);
  }
  EXPECT_TRUE(machine->polkit().questions().empty());
}

TEST_F(HelperServiceTest, whatIsNoEventIsRefusedWithoutAQuestion) {
  start({});
  const std::string reply = encodeHelperMessage({HelperMessage::Kind::Reply, kNowhere, {}}).value();
  const std::string noViews = encodeHelperMessage({HelperMessage::Kind::Event, kNowhere, {}}).value();
  const std::string foreignTypes = codedEvent({{"/a", HelperDictionary{{"0", "text"}}}});
  for (const std::string& bytes : {std::string("nonsense"), reply, noViews, foreignTypes}) {
    const Answer answer = machine->askRaw(kDelete, bytes);
    EXPECT_TRUE(answer.isThere);
    EXPECT_FALSE(answer.flag);
    EXPECT_TRUE(answer.dictionary.empty());
  }
  EXPECT_TRUE(machine->polkit().questions().empty());
}

HelperDictionary manyPaths(std::size_t count, std::size_t size) {
  HelperDictionary paths;
  for (std::size_t i = 0; i < count; ++i) {
    std::string path = "/no/such/folder/" + std::to_string(1'000'000 + i);
    path.resize(size, 'x');
    paths.emplace_hint(paths.end(), std::move(path), HelperDictionary{{"0", i}});
  }
  return paths;
}

TEST_F(HelperServiceTest, anEventOf33MegabytesIsAnsweredPathByPath) {
  start({});
  const Answer answer = machine->ask(kDelete, manyPaths(33'000, 1000));
  ASSERT_TRUE(answer.isThere) << machine->log();
  ASSERT_EQ(answer.dictionary.size(), 33'000U);
  std::size_t sound = 0;
  std::int64_t expected = 0;
  for (const auto& [key, value] : answer.dictionary) {
    const HelperDictionary& entry = *value.asDictionary();
    if (entry.contains("DeleteStatus") && *entry.at("0").asNumber() == expected++) ++sound;
  }
  EXPECT_EQ(sound, 33'000U);
}

/// What a coded event of `count` paths of 110 bytes has, made without its dictionary: that would take more
/// memory than all the rest.
std::string codedPaths(std::uint32_t count) {
  const auto integer = [](std::uint64_t value, int size) {
    std::string bytes;
    for (int i = 0; i < size; ++i) bytes.push_back(static_cast<char>(value >> (8 * i)));
    return bytes;
  };
  std::string bytes = integer(1, 1) + integer(1, 1) + integer(1, 1) + integer(count, 4);
  for (std::uint32_t i = 0; i < count; ++i) {
    std::string path = "/no/such/folder/" + std::to_string(1'000'000 + i) + "/";
    path.resize(110, 'x');
    bytes += integer(path.size(), 4) + path + integer(3, 1) + integer(1, 4);
    bytes += integer(1, 4) + "0" + integer(1, 1) + integer(i, 8);
  }
  return bytes + integer(1, 1) + std::string(count, '\3');
}

TEST_F(HelperServiceTest, manyPathsTakeLittleMemory) {
  constexpr std::uint32_t kCount = 250'000;
  start({});
  const std::string event = codedPaths(kCount);
  const std::string reply = machine->askForBytes(kDelete, event);
  const auto view = MessageView::of(reply, HelperMessage::Kind::Reply);
  ASSERT_TRUE(view.has_value()) << machine->log();
  ASSERT_EQ(view->dictionary().size(), kCount);
  std::size_t sound = 0;
  for (const MessageView::Entry& entry : view->dictionary()) {
    const MessageView::Entry& number = *entry.below.begin();
    if (number.key == "0" && number.number == static_cast<std::int64_t>(entry.index)) ++sound;
  }
  EXPECT_EQ(sound, kCount);
  const long supervisor = std::atol(statusOf(machine->helper(), "VmHWM").c_str());
  ASSERT_TRUE(machine->waitForLog("worker-memory="));
  const std::string log = machine->log();
  const long worker = std::atol(log.c_str() + log.find("worker-memory=") + 14);
  RecordProperty("supervisorKiB", std::to_string(supervisor));
  RecordProperty("workerKiB", std::to_string(worker));
  RecordProperty("eventBytes", std::to_string(event.size()));
  EXPECT_GT(supervisor, 0);
  EXPECT_GT(worker, 0);
  EXPECT_LE(supervisor + worker, 256 * 1024);  // a million paths in 1 GiB
}

TEST_F(HelperServiceTest, anEventOverTheCapIsRefused) {
  start({});
  // Nothing but the size is wrong with it.
  std::string bytes = codedEvent(kNowhere);
  bytes.resize(HelperLimits::bytes + 1);
  const Answer answer = machine->askRaw(kDelete, bytes);
  EXPECT_TRUE(answer.isThere);
  EXPECT_FALSE(answer.flag);
  EXPECT_EQ(answer.code, kNoCause);
}

// --- who asks ---

TEST_F(HelperServiceTest, theSubjectIsTheBusNameOfTheSender) {
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
  EXPECT_EQ(questions[0].details, (std::map<std::string, std::string>{{"count", "1"}}));
}

TEST_F(HelperServiceTest, eachKindHasItsAction) {
  startScripted(ScriptedPolkit::Mode::No);
  machine->ask(kDelete, kNowhere);
  machine->ask(kShred, kNowhere);
  for (const int operation : {0, 1, 2}) machine->ask(kMaintenance, {{"OperationValue", operation}});
  machine->ask(kMaintenance, {{"OperationValue", 3}});
  std::vector<std::string> actions;
  for (const auto& question : machine->polkit().questions()) {
    actions.push_back(question.action.substr(kService.size()));
  }
  EXPECT_EQ(actions, (std::vector<std::string>{".delete", ".shred", ".maintenance", ".maintenance",
                                               ".maintenance", ".move"}));
}

TEST_F(HelperServiceTest, anErrorOfPolkitIsARefusal) {
  startScripted(ScriptedPolkit::Mode::Error);
  const std::string file = rootsFile("kept");
  const Answer answer = machine->ask(kDelete, {{file, HelperDictionary{{"0", 1}}}});
  EXPECT_TRUE(answer.isThere);
  EXPECT_FALSE(answer.flag);
  EXPECT_TRUE(fs::exists(file));
  EXPECT_TRUE(machine->waitForLog("refused: no-authority"));
}

TEST_F(HelperServiceTest, withoutPolkitEverythingIsRefused) {
  HelperMachine::Setup setup;
  setup.polkit = HelperMachine::Polkit::None;
  start(setup);
  const std::string file = rootsFile("kept");
  const Answer answer = machine->ask(kDelete, {{file, HelperDictionary{{"0", 1}}}});
  EXPECT_TRUE(answer.isThere);
  EXPECT_FALSE(answer.flag);
  EXPECT_TRUE(fs::exists(file));
}

TEST_F(HelperServiceTest, aCallerThatLeavesDuringTheQuestionHasSentNothing) {
  startScripted(ScriptedPolkit::Mode::Wait);
  const std::string file = rootsFile("kept");
  auto caller = std::make_unique<test::LeavingCaller>(*machine, kDelete,
                                                      codedEvent({{file, HelperDictionary{{"0", 1}}}}));
  ASSERT_TRUE(machine->polkit().waitForQuestions(1));
  caller.reset();
  ASSERT_TRUE(machine->waitForLog("refused: caller-left"));
  EXPECT_TRUE(test::runMainLoopUntil([this] { return machine->polkit().cancellations().size() == 1; }));
  machine->polkit().answerAll(true);
  // The next call is served after whatever the late yes could have set off.
  machine->polkit().setMode(ScriptedPolkit::Mode::No);
  EXPECT_TRUE(machine->ask(kDelete, kNowhere).isThere);
  EXPECT_TRUE(fs::exists(file));
  EXPECT_EQ(machine->log().find(" start"), std::string::npos);
}

// --- with the real polkit ---

class HelperServiceWithPolkit : public HelperServiceTest {
 protected:
  static constexpr std::uint32_t kYes = test::kAlice;
  static constexpr std::uint32_t kNo = test::kBob;

  void SetUp() override {
    HelperServiceTest::SetUp();
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
  EXPECT_FALSE(answer.flag);
  EXPECT_TRUE(machine->waitForLog("done=2 failed=1"));
  EXPECT_TRUE(machine->waitForLog("path=\"/usr/bin/true\""));
}

TEST_F(HelperServiceWithPolkit, aNoTouchesNothing) {
  const std::string file = rootsFile("kept");
  const Answer answer = machine->askAs(kNo, kDelete, {{file, HelperDictionary{{"0", 1}}}});
  ASSERT_TRUE(answer.isThere);
  EXPECT_FALSE(answer.flag);
  EXPECT_TRUE(fs::exists(file));
  EXPECT_TRUE(machine->waitForLog("refused: not-authorised"));
  EXPECT_EQ(machine->log().find(" start"), std::string::npos);
}

TEST_F(HelperServiceWithPolkit, aYesToOneKindIsNoneToAnother) {
  const Answer answer = machine->askAs(kYes, kShred, kNowhere);
  EXPECT_TRUE(answer.isThere);
  EXPECT_FALSE(answer.flag);
  EXPECT_EQ(machine->log().find(" start"), std::string::npos);
}

TEST_F(HelperServiceWithPolkit, whoeverTheRulesDoNotNameIsRefused) {
  EXPECT_FALSE(machine->askAs(test::kCarol, kDelete, kNowhere).flag);
  EXPECT_TRUE(machine->waitForLog("refused: not-authorised"));
}

TEST_F(HelperServiceWithPolkit, aUserInTheMessageCountsForNothing) {
  // There is no place for one: whatever is beside the stated form is refused whole.
  for (const char* key : {"uid", "UnixUserID", "sender", "pid"}) {
    const Answer answer = machine->askAs(kNo, kDelete, {{"/nowhere", HelperDictionary{{key, 10001}}}});
    EXPECT_TRUE(answer.isThere);
    EXPECT_FALSE(answer.flag);
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

TEST_F(HelperServiceTest, nothingIsLookedAtBeforeTheYes) {
  HelperMachine::Setup setup;
  setup.mode = ScriptedPolkit::Mode::No;
  const std::string trace = "/mnt/trace";
  setup.tracer = "/usr/bin/strace -f -o " + trace + " -s 4096";
  start(setup);
  const std::string file = rootsFile("secret-name");
  EXPECT_FALSE(machine->ask(kDelete, {{file, HelperDictionary{{"0", 1}}}}).flag);
  machine->kill(SIGTERM);
  ASSERT_TRUE(machine->waitUntilHelperIsGone());
  std::string calls = test::contentOf(trace);
  EXPECT_NE(calls.find("CheckAuthorization"), std::string::npos);
  EXPECT_EQ(calls.find(machine->folder().path() + "/s"), std::string::npos);
  // The log names no path of a refused call either.
  EXPECT_EQ(calls.find("secret-name"), std::string::npos);
}

// --- workers that end before their work ---

/// Starts a helper whose workers' removals are tampered with, as strace -e inject=unlinkat has it.
HelperMachine::Setup withInjection(const std::string& injection) {
  HelperMachine::Setup setup;
  setup.tracer = "/usr/bin/strace -f -o /dev/null -e trace=unlinkat -e inject=unlinkat:" + injection;
  return setup;
}

TEST_F(HelperServiceTest, aWorkerKilledInMidEventGivesOneSoundReply) {
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

TEST_F(HelperServiceTest, aWorkerWhoseCallerLeftIsKilledAfterItsTime) {
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

TEST_F(HelperServiceTest, aWorkerWhoseCallerLeftHasTimeToEnd) {
  start(withInjection("delay_enter=100000"));
  const std::string file = rootsFile("gone");
  auto caller = std::make_unique<test::LeavingCaller>(*machine, kDelete,
                                                      codedEvent({{file, HelperDictionary{{"0", 1}}}}));
  ASSERT_TRUE(machine->waitForLog(" start"));
  caller.reset();
  EXPECT_TRUE(machine->waitForLog("done=1 failed=0 flag=1"));
  EXPECT_FALSE(fs::exists(file));
}

TEST_F(HelperServiceTest, aStopKillsTheWorkerAndAnswers) {
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

// --- what the unit allows ---

/// The names of a set of system calls, as the service manager knows it.
std::set<std::string> callsOf(const std::string& set) {
  std::string output;
  ChildProcess analyze("/usr/bin/systemd-analyze", {"syscall-filter", "--no-pager", set});
  analyze.run([&](std::string_view piece) {
    output += piece;
    return true;
  });
  std::set<std::string> calls;
  std::istringstream lines(output);
  for (std::string word; lines >> word;) {
    if (word == "#") std::getline(lines, word);
    if (word.starts_with('@') && word != set) calls.merge(callsOf(word));
    calls.insert(word);
  }
  return calls;
}

TEST_F(HelperServiceTest, itMakesNoSystemCallThatItsUnitForbids) {
  const std::string trace = "/mnt/trace";
  fs::remove(trace);
  HelperMachine::Setup setup;
  setup.tracer = "/usr/bin/strace -f -qq -e signal=none -o " + trace;
  start(setup);
  const std::string folder = machine->folder().folder("folder/below");
  for (const std::int32_t kind : {kDelete, kShred}) {
    const std::string file = rootsFile("folder/below/file");
    EXPECT_TRUE(machine->ask(kind, {{file, HelperDictionary()}}).flag) << machine->log();
    EXPECT_FALSE(fs::exists(file));
  }
  EXPECT_TRUE(machine->ask(kDelete, {{folder, HelperDictionary()}}).flag) << machine->log();
  machine->kill(SIGTERM);
  ASSERT_TRUE(machine->waitUntilHelperIsGone());
  std::set<std::string> allowed = callsOf("@system-service");
  EXPECT_GT(allowed.size(), 200U);
  for (const char* set : {"@mount", "@swap", "@reboot", "@module", "@raw-io", "@debug", "@keyring"}) {
    for (const std::string& call : callsOf(set)) allowed.erase(call);
  }
  std::istringstream lines(test::contentOf(trace));
  std::set<std::string> made;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t name = line.find_first_not_of("0123456789 ");
    const std::size_t open = line.find('(', name);
    if (open != std::string::npos && line[name] != '<' && line[name] != '+')
      made.insert(line.substr(name, open - name));
  }
  EXPECT_TRUE(made.contains("unlinkat"));
  for (const std::string& call : made) EXPECT_TRUE(allowed.contains(call)) << call;
}

TEST_F(HelperServiceTest, theCapabilitiesOfItsUnitAreEnough) {
  HelperMachine::Setup setup;
  setup.tracer =
      "/usr/bin/setpriv --no-new-privs --inh-caps=-all"
      " --bounding-set=-all,+dac_override,+dac_read_search,+fowner";
  start(setup);
  for (const std::int32_t kind : {kDelete, kShred}) {
    const std::string file = rootsFile("closed/file");
    const std::string folder = machine->folder().path("closed");
    ::chmod(folder.c_str(), 0);
    const Answer answer = machine->ask(kind, {{file, HelperDictionary()}});
    EXPECT_TRUE(answer.flag) << machine->log();
    EXPECT_FALSE(fs::exists(file));
    ::chmod(folder.c_str(), 0755);
  }
  EXPECT_EQ(statusOf(machine->helper(), "CapEff"), "000000000000000e");
  EXPECT_EQ(statusOf(machine->helper(), "NoNewPrivs"), "1");
}

// --- how many, and until when ---

TEST_F(HelperServiceTest, aUserHasTwoEventsUnderWay) {
  startScripted(ScriptedPolkit::Mode::Wait);
  const auto held = helper();
  auto first = test::send(*held, kDelete, kNowhere);
  auto second = test::send(*helper(), kDelete, kNowhere);
  ASSERT_TRUE(machine->polkit().waitForQuestions(2));
  const Answer third = machine->ask(kDelete, kNowhere);
  EXPECT_TRUE(third.isThere);
  EXPECT_FALSE(third.flag);
  EXPECT_EQ(third.dictionary.size(), 1U);
  EXPECT_TRUE(machine->waitForLog("refused: too-many"));
  EXPECT_EQ(machine->polkit().questions().size(), 2U);
  machine->polkit().answerAll(false);
  EXPECT_TRUE(test::take(std::move(first)).isThere);
  EXPECT_TRUE(test::take(std::move(second)).isThere);
  machine->polkit().setMode(ScriptedPolkit::Mode::No);
  EXPECT_TRUE(machine->ask(kDelete, kNowhere).isThere);
  EXPECT_EQ(machine->polkit().questions().size(), 3U);
}

TEST_F(HelperServiceTest, aCloseWithoutUseIsNotHonoured) {
  startScripted(ScriptedPolkit::Mode::No);
  machine->ask(kDelete, kNowhere);
  const pid_t process = machine->helper();
  const Answer answer = machine->ask(kClose, {});
  EXPECT_TRUE(answer.isThere);
  EXPECT_FALSE(answer.flag);
  EXPECT_EQ(machine->helper(), process);
}

TEST_F(HelperServiceTest, aCloseWhileSomethingIsUnderWayIsNotHonoured) {
  start({});
  machine->ask(kDelete, kNowhere);
  machine->polkit().setMode(ScriptedPolkit::Mode::Wait);
  auto waiting = test::send(*helper(), kDelete, kNowhere);
  ASSERT_TRUE(machine->polkit().waitForQuestions(2));
  const pid_t process = machine->helper();
  const Answer answer = machine->ask(kClose, {});
  EXPECT_TRUE(answer.isThere);
  EXPECT_FALSE(answer.flag);
  machine->polkit().answerAll(true);
  EXPECT_TRUE(test::take(std::move(waiting)).isThere);
  EXPECT_EQ(machine->helper(), process);
}

TEST_F(HelperServiceTest, aCloseByAUserOfItEndsItAndTheNextCallStartsAnother) {
  start({});
  const auto held = helper();
  EXPECT_TRUE(test::take(test::send(*held, kDelete, kNowhere)).isThere);
  const pid_t process = machine->helper();
  const Answer answer = test::take(test::send(*held, kClose, {}));
  EXPECT_TRUE(answer.isThere);
  EXPECT_TRUE(answer.flag);
  ASSERT_TRUE(machine->waitUntilHelperIsGone());
  EXPECT_TRUE(test::take(test::send(*held, kDelete, kNowhere)).isThere);
  EXPECT_NE(machine->helper(), process);
  EXPECT_EQ(*lost, 0);
}

TEST_F(HelperServiceTest, aCloseByAnotherUserIsNotHonoured) {
  start({});
  machine->ask(kDelete, kNowhere);
  const Answer answer = machine->askAs(test::kAlice, kClose, {});
  EXPECT_TRUE(answer.isThere);
  EXPECT_FALSE(answer.flag);
  EXPECT_GT(machine->helper(), 0);
}

TEST_F(HelperServiceTest, aStopRefusesWhatWaitsAndEndsIt) {
  startScripted(ScriptedPolkit::Mode::Wait);
  auto waiting = test::send(*helper(), kDelete, kNowhere);
  ASSERT_TRUE(machine->polkit().waitForQuestions(1));
  machine->kill(SIGTERM);
  const Answer answer = test::take(std::move(waiting));
  EXPECT_TRUE(answer.isThere);
  EXPECT_FALSE(answer.flag);
  EXPECT_TRUE(machine->waitUntilHelperIsGone());
}

TEST_F(HelperServiceTest, aSecondAskerGetsTheSameHelper) {
  start({});
  PrivilegeHelper privilege(std::make_shared<SystemHelperInstallation>(),
                            [this](const std::string&) { return machine->connect(); });
  Host::install(Host::linuxDesktop({}));
  const PrivilegeHelper::Tool first = privilege.getHelperTool(kService, kSMDomainSystemLaunchd);
  ASSERT_NE(first.helper, nullptr) << first.message.value_or("");
  EXPECT_TRUE(test::take(test::send(*first.helper, kDelete, kNowhere)).isThere);
  const pid_t process = machine->helper();
  const PrivilegeHelper::Tool second = privilege.getHelperTool(kService, kSMDomainSystemLaunchd);
  EXPECT_EQ(first.helper, second.helper);
  EXPECT_TRUE(test::take(test::send(*second.helper, kDelete, kNowhere)).isThere);
  EXPECT_EQ(machine->helper(), process);
}

// --- what the program is ---

TEST_F(HelperServiceTest, nothingOfItsStarterIsLeft) {
  start({});
  machine->ask(kDelete, kNowhere);
  const std::string process = "/proc/" + std::to_string(machine->helper());
  EXPECT_EQ(fs::read_symlink(process + "/cwd"), "/");
  EXPECT_EQ(statusOf(machine->helper(), "Umask"), "0077");
  EXPECT_EQ(statusOf(machine->helper(), "Threads"), "1");
  EXPECT_EQ(statusOf(machine->helper(), "Uid"), "0\t0\t0\t0");
  EXPECT_EQ(fs::read_symlink(process + "/fd/0"), "/dev/null");
  EXPECT_EQ(fs::read_symlink(process + "/fd/1"), "/dev/null");
}

TEST_F(HelperServiceTest, itKeepsNothingOfWhatIsDone) {
  start({});
  const auto held = helper();
  const auto ask = [&](int times) {
    for (int i = 0; i < times; ++i) EXPECT_TRUE(test::take(test::send(*held, kDelete, kNowhere)).isThere);
    const std::string process = "/proc/" + std::to_string(machine->helper());
    const std::string children = test::contentOf(process + "/task/" + process.substr(6) + "/children");
    EXPECT_EQ(children, "");
    return std::distance(fs::directory_iterator(process + "/fd"), fs::directory_iterator());
  };
  const auto before = ask(1);
  EXPECT_EQ(ask(20), before);
}

TEST_F(HelperServiceTest, itsUsersCanNeitherSignalNorTraceIt) {
  start({});
  machine->ask(kDelete, kNowhere);
  const pid_t process = machine->helper();
  const std::string text = test::inUser(test::kAlice, [process] {
    const bool isSafe = ::kill(process, 0) != 0 && ::kill(process, SIGTERM) != 0 &&
                        ::access(("/proc/" + std::to_string(process) + "/mem").c_str(), R_OK) != 0;
    return std::string(isSafe ? "safe" : "reached");
  });
  EXPECT_EQ(text, "safe");
}

TEST_F(HelperServiceTest, aPathIsOneLineOfTheLogWhateverItsBytes) {
  start({});
  machine->ask(kDelete, {{"/etc/nowhere/a\ncall 99: uid=0 end\x1b[2J\"\xff", HelperDictionary{{"0", 1}}}});
  ASSERT_TRUE(machine->waitForLog("/etc/nowhere/a\\x0acall 99: uid=0 end\\x1b[2J\\x22\\xff"))
      << machine->log();
  EXPECT_EQ(machine->log().find("\ncall 99"), std::string::npos);
}

TEST_F(HelperServiceTest, aPathComesBackByteForByte) {
  startScripted(ScriptedPolkit::Mode::No);
  std::string path = "/nowhere/";
  for (int byte = 1; byte < 256; ++byte) {
    if (byte != '/') path.push_back(static_cast<char>(byte));
  }
  const Answer answer = machine->ask(kShred, {{path, HelperDictionary()}});
  ASSERT_EQ(answer.dictionary.size(), 1U);
  EXPECT_EQ(*answer.dictionary.begin()->second.asDictionary()->at("Path").asText(), path);
}

TEST_F(HelperServiceTest, aSlipInTheConfigurationIsReported) {
  startScripted(ScriptedPolkit::Mode::No, "nonsense\n");
  machine->ask(kDelete, kNowhere);
  EXPECT_TRUE(machine->waitForLog("/helper.conf: line 1 makes no sense"));
}

// --- uninstalling ---

TEST_F(HelperServiceTest, uninstallingIsAskedForAndRemovesTheFiles) {
  start({});
  const auto held = helper();
  const auto uninstall = [&] {
    auto done = std::make_shared<std::promise<std::pair<bool, std::string>>>();
    held->uninstall([done](bool flag, const std::string& text) { done->set_value({flag, text}); });
    return done->get_future().get();
  };
  machine->polkit().setMode(ScriptedPolkit::Mode::No);
  EXPECT_EQ(uninstall(), std::pair(false, std::string(kRefused)));
  EXPECT_TRUE(fs::exists("/usr/libexec/" + kService));
  machine->polkit().setMode(ScriptedPolkit::Mode::Yes);
  EXPECT_EQ(uninstall(), std::pair(true, std::string()));
  EXPECT_EQ(machine->polkit().questions().back().action, kService + ".uninstall");
  for (const char* file :
       {"/usr/libexec/", "/usr/share/dbus-1/system-services/", "/usr/lib/systemd/system/"}) {
    for (const char* ending : {"", ".service"}) EXPECT_FALSE(fs::exists(file + kService + ending));
  }
  EXPECT_FALSE(fs::exists("/usr/share/dbus-1/system.d/" + kService + ".conf"));
  EXPECT_FALSE(fs::exists("/usr/share/polkit-1/actions/" + kService + ".policy"));
  EXPECT_TRUE(machine->waitUntilHelperIsGone());
}

}  // namespace
}  // namespace sorrel::helper
