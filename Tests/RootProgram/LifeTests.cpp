#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <future>

#include "SorrelFramework/HelpTool/PrivilegeHelper.hpp"
#include "SorrelFramework/HelpTool/SystemHelperInstallation.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/Helper/HelperServiceKit.hpp"
#include "Tests/Helper/RawCaller.hpp"
#include "Tests/Support/MainLoop.hpp"

namespace sorrel::helper {
namespace {

namespace fs = std::filesystem;
using namespace test;

using Life = HelperServiceKit;

// --- number and lifetime of events ---

TEST_F(Life, aUserHasOneEventUnderWay) {
  startScripted(ScriptedPolkit::Mode::Wait);
  auto first = test::send(*helper(), kDelete, kNowhere);
  ASSERT_TRUE(machine->polkit().waitForQuestions(1));
  const Answer second = machine->ask(kDelete, kNowhere);
  ASSERT_EQ(second.dictionary.size(), 1U);
  EXPECT_EQ(*second.dictionary.begin()->second.asDictionary()->at("DeleteDesc").asText(),
            "The privileged helper is at work for you already.");
  EXPECT_TRUE(machine->waitForLog("refused: too-many"));
  EXPECT_EQ(machine->polkit().questions().size(), 1U) << "the limit is asked before polkit";
  machine->polkit().answerAll(false);
  EXPECT_TRUE(test::take(std::move(first)).isThere);
  machine->polkit().setMode(ScriptedPolkit::Mode::No);
  EXPECT_TRUE(machine->ask(kDelete, kNowhere).isThere);
  EXPECT_EQ(machine->polkit().questions().size(), 2U);
}

TEST_F(Life, oneUsersFloodLeavesRoomForAnother) {
  startScripted(ScriptedPolkit::Mode::Wait);
  machine->ask(kClose, {});  // starts it
  machine->kill(SIGSTOP);
  RawCaller flood(machine->address());
  for (int i = 0; i < 50; ++i) flood.beginUnanswered({kDelete, HelperWireNames::noOperation, 1, 100});
  machine->kill(SIGCONT);
  ASSERT_TRUE(machine->polkit().waitForQuestions(1));
  EXPECT_TRUE(machine->waitForLog("refused: busy")) << "one call of a connection is identified at a time";
  machine->polkit().setMode(ScriptedPolkit::Mode::Yes);
  EXPECT_TRUE(machine->askAs(kAlice, kDelete, kNowhere).isThere);
  EXPECT_EQ(machine->polkit().questions().size(), 2U);
}

TEST_F(Life, aCloseWithoutUseIsNotHonoured) {
  startScripted(ScriptedPolkit::Mode::No);
  machine->ask(kDelete, kNowhere);
  const pid_t process = machine->helper();
  const Answer answer = machine->ask(kClose, {});
  EXPECT_TRUE(answer.isThere);
  EXPECT_FALSE(answer.flag);
  EXPECT_EQ(machine->helper(), process);
}

TEST_F(Life, aCloseWhileSomethingIsUnderWayIsNotHonoured) {
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

TEST_F(Life, aCloseByAUserOfItEndsItAndTheNextCallStartsAnother) {
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

TEST_F(Life, aCloseByAnotherUserIsNotHonoured) {
  start({});
  machine->ask(kDelete, kNowhere);
  const pid_t process = machine->helper();
  EXPECT_EQ(
      test::inUser(
          test::kAlice,
          [this] { return RawCaller(machine->address()).call(HelperWireNames::closeHelper, [](auto&) {}); }),
      "");
  EXPECT_TRUE(machine->ask(kDelete, kNowhere).isThere);
  EXPECT_EQ(machine->helper(), process);
}

TEST_F(Life, withoutWorkItEndsAndTheNextCallStartsAnother) {
  startScripted(ScriptedPolkit::Mode::Wait, "idle-seconds = 0\n");
  const auto held = helper();
  auto waiting = send(*held, kDelete, kNowhere);
  ASSERT_TRUE(machine->polkit().waitForQuestions(1));
  const pid_t process = machine->helper();
  EXPECT_GT(process, 0) << "a question is work";
  machine->polkit().answerAll(true);
  EXPECT_TRUE(take(std::move(waiting)).isThere);
  ASSERT_TRUE(machine->waitUntilHelperIsGone());
  EXPECT_TRUE(machine->waitForLog("nothing to do"));
  machine->polkit().setMode(ScriptedPolkit::Mode::Yes);
  EXPECT_TRUE(take(send(*held, kDelete, kNowhere)).isThere);
  EXPECT_EQ(*lost, 0);
}

TEST_F(Life, aStopRefusesWhatWaitsAndEndsIt) {
  startScripted(ScriptedPolkit::Mode::Wait);
  auto waiting = test::send(*helper(), kDelete, kNowhere);
  ASSERT_TRUE(machine->polkit().waitForQuestions(1));
  machine->kill(SIGTERM);
  const Answer answer = test::take(std::move(waiting));
  EXPECT_TRUE(answer.isThere);
  EXPECT_FALSE(answer.flag);
  EXPECT_TRUE(machine->waitUntilHelperIsGone());
}

TEST_F(Life, aSecondAskerGetsTheSameHelper) {
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

// --- the process ---

TEST_F(Life, nothingOfItsStarterIsLeft) {
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

TEST_F(Life, itKeepsNothingOfWhatIsDone) {
  start({});
  const auto held = helper();
  const auto ask = [&](int times) {
    for (int i = 0; i < times; ++i) EXPECT_TRUE(test::take(test::send(*held, kDelete, kNowhere)).isThere);
    // The reply does not wait for the end of the worker's process.
    const std::string process = "/proc/" + std::to_string(machine->helper());
    const std::string children = process + "/task/" + process.substr(6) + "/children";
    EXPECT_TRUE(runMainLoopUntil([&] { return test::contentOf(children).empty(); }));
    // The helper closes the last descriptors before it accepts the next call.
    std::promise<void> done;
    held->getHelperVersion([&](const std::string&) { done.set_value(); });
    done.get_future().wait();
    return std::distance(fs::directory_iterator(process + "/fd"), fs::directory_iterator());
  };
  const auto before = ask(1);
  EXPECT_EQ(ask(20), before);
}

TEST_F(Life, itsUsersCanNeitherSignalNorTraceIt) {
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

TEST_F(Life, aPathIsOneLineOfTheLogWhateverItsBytes) {
  start({});
  machine->ask(kDelete, {{"/etc/nowhere/a\ncall 99: uid=0 end\x1b[2J\"\xff", HelperDictionary{{"0", 1}}}});
  ASSERT_TRUE(machine->waitForLog("/etc/nowhere/a\\x0acall 99: uid=0 end\\x1b[2J\\x22\\xff"))
      << machine->log();
  EXPECT_EQ(machine->log().find("\ncall 99"), std::string::npos);
}

TEST_F(Life, theTopmostPathsThatAreGoneAreInTheLog) {
  start({});
  const std::string folder = machine->folder().path("folder");
  const std::string inside = machine->folder().file("folder/a\nb", "x");
  machine->ask(kDelete, {{folder, HelperDictionary{{"0", 0}}}, {inside, HelperDictionary{{"0", 1}}}});
  ASSERT_TRUE(machine->waitForLog("done=2 failed=0")) << machine->log();
  EXPECT_NE(machine->log().find("removed path=\"" + folder + "\""), std::string::npos) << machine->log();
  EXPECT_EQ(machine->log().find("\\x0ab"), std::string::npos) << "it lay in the folder";
}

TEST_F(Life, aHundredPathsAreNamedAndTheOthersCounted) {
  start({});
  HelperDictionary event;
  for (int i = 0; i < 103; ++i) event.emplace(rootsFile("f" + std::to_string(i)), HelperDictionary{{"0", i}});
  machine->ask(kDelete, event);
  EXPECT_TRUE(machine->waitForLog("removed 3 more that are not named")) << machine->log();
}

TEST_F(Life, noPathThatIsGoneIsInTheLogIfTheAdministratorSaysSo) {
  startScripted(ScriptedPolkit::Mode::Yes, "log-paths = no\n");
  const std::string file = rootsFile("secret-name");
  machine->ask(kDelete, {{file, HelperDictionary{{"0", 0}}}});
  ASSERT_TRUE(machine->waitForLog("done=1 failed=0")) << machine->log();
  EXPECT_EQ(machine->log().find("secret-name"), std::string::npos) << machine->log();
}

TEST_F(Life, aPathComesBackByteForByte) {
  startScripted(ScriptedPolkit::Mode::No);
  std::string path = "/nowhere/";
  for (int byte = 1; byte < 256; ++byte) {
    if (byte != '/') path.push_back(static_cast<char>(byte));
  }
  const Answer answer = machine->ask(kShred, {{path, HelperDictionary()}});
  ASSERT_EQ(answer.dictionary.size(), 1U);
  EXPECT_EQ(*answer.dictionary.begin()->second.asDictionary()->at("Path").asText(), path);
}

TEST_F(Life, aFaultyConfigurationRefusesEveryEventAndSaysWhy) {
  startScripted(ScriptedPolkit::Mode::Yes, "refuse = \"/srv/data\"\n");
  const std::string file = rootsFile("file");
  const Answer answer = machine->ask(kDelete, {{file, HelperDictionary{{"0", 0}}}});
  EXPECT_TRUE(answer.isThere);
  EXPECT_FALSE(answer.flag);
  EXPECT_EQ(::access(file.c_str(), F_OK), 0);
  EXPECT_TRUE(machine->waitForLog("/helper.conf: line 1 makes no sense: all events are refused"))
      << machine->log();
}

TEST_F(Life, theConfigurationIsReadForEachEvent) {
  startScripted(ScriptedPolkit::Mode::Yes, "idle-seconds = 300\n");
  const std::string configuration = "/etc/" + kService + "/helper.conf";
  const auto removes = [this](const std::string& name) {
    const std::string file = rootsFile(name);
    EXPECT_TRUE(machine->ask(kDelete, {{file, HelperDictionary{{"0", 0}}}}).isThere);
    return ::access(file.c_str(), F_OK) != 0;
  };
  EXPECT_TRUE(removes("a"));
  const pid_t process = machine->helper();
  std::ofstream(configuration) << "refuse = " << machine->folder().path() << "\nrefuse = /no/such/place\n";
  EXPECT_FALSE(removes("b"));
  EXPECT_TRUE(machine->waitForLog("helper.conf: refuse: there is no \"/no/such/place\"")) << machine->log();
  std::ofstream(configuration) << "refuse = nonsense\n";
  EXPECT_FALSE(removes("c"));
  EXPECT_TRUE(machine->waitForLog("line 1 makes no sense: all events are refused")) << machine->log();
  fs::remove(configuration);
  EXPECT_TRUE(removes("d"));
  EXPECT_EQ(machine->helper(), process) << "the same one";
}

TEST_F(Life, aRefusedPathThatAppearsLaterIsRefused) {
  start({});
  const std::string place = machine->folder().path("later");
  fs::create_directory("/etc/" + kService);
  std::ofstream("/etc/" + kService + "/helper.conf") << "refuse = " << place << "\n";
  machine->ask(kDelete, kNowhere);
  EXPECT_TRUE(machine->waitForLog("there is no \"" + place)) << machine->log();
  const std::string file = machine->folder().file("later/file", "x");
  machine->ask(kDelete, {{file, HelperDictionary{{"0", 0}}}});
  EXPECT_EQ(::access(file.c_str(), F_OK), 0);
}

// --- uninstalling ---

TEST_F(Life, uninstallingRemovesNothingAndTellsTheCommand) {
  start({});
  auto done = std::make_shared<std::promise<std::pair<bool, std::string>>>();
  helper()->uninstall([done](bool flag, const std::string& text) { done->set_value({flag, text}); });
  const auto [flag, text] = done->get_future().get();
  EXPECT_FALSE(flag);
  EXPECT_TRUE(text.ends_with("sudo install-helper --remove " + kService)) << text;
  EXPECT_TRUE(machine->polkit().questions().empty());
  EXPECT_TRUE(fs::exists("/usr/libexec/" + kService));
}

}  // namespace
}  // namespace sorrel::helper
