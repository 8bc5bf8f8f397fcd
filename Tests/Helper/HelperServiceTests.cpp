#include "Helper/HelperService.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>
#include <TestPlaces.hpp>

#include <cstdlib>
#include <future>
#include <string>
#include <utility>
#include <vector>

#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/HelpTool/MessageView.hpp"
#include "Tests/Helper/HelperServiceKit.hpp"
#include "Tests/Helper/RawCaller.hpp"
#include "Tests/Support/Checkers.hpp"
#include "Tests/Support/ManyPaths.hpp"

namespace sorrel::helper {
namespace {

using namespace test;
using HelperServiceTest = HelperServiceKit;

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
  EXPECT_TRUE(answer.dictionary == (HelperDictionary{{"/nowhere/a\xff", first}, {"/nowhere/b", second}}));
}

TEST_F(HelperServiceTest, aRefusedShredListsEachPath) {
  startScripted(ScriptedPolkit::Mode::No);
  const Answer answer = machine->ask(kShred, {{"/nowhere/a\xff", HelperDictionary()}});
  EXPECT_FALSE(answer.flag);
  const HelperDictionary entry{{"Path", "/nowhere/a\xff"}, {"DeleteStatus", 4}, {"DeleteDesc", kRefused}};
  EXPECT_TRUE(answer.dictionary == (HelperDictionary{{"/nowhere/a\xff", entry}}));
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

const Announced kOneDelete{kDelete, HelperWireNames::noOperation, 1, 100};

TEST_F(HelperServiceTest, aRefusalHasAReasonAndNothingElse) {
  startScripted(ScriptedPolkit::Mode::No);
  RawCaller caller(machine->address());
  const RawCaller::Ticket ticket = caller.begin(kOneDelete);
  EXPECT_EQ(ticket.refusal, "not-authorised");
  EXPECT_FALSE(ticket.memory.isOpen());
}

TEST_F(HelperServiceTest, whatCanBeNoEventIsRefusedWithoutAQuestion) {
  start({});
  RawCaller caller(machine->address());
  const std::uint64_t most = HelperLimits::bytes;
  for (const Announced& announced :
       {Announced{-1, -1, 0, 1}, Announced{3, -1, 0, 1}, Announced{4, -1, 0, 1}, Announced{2, 4, 0, 1},
        Announced{0, -1, 2'000'001, 1}, Announced{0, -1, 1, 0}, Announced{0, -1, 1, most + 1}}) {
    EXPECT_EQ(caller.begin(announced).refusal, "unsound-message");
  }
  EXPECT_TRUE(machine->polkit().questions().empty());
}

TEST_F(HelperServiceTest, anEventThatIsNotAsAnnouncedIsRefusedAsAWhole) {
  start({});
  const std::string sound = codedEvent(kNowhere);
  const std::string noViews = encodeHelperMessage({HelperMessage::Kind::Event, kNowhere, {}}).value();
  const std::string foreignTypes = codedEvent({{"/a", HelperDictionary{{"0", "text"}}}});
  const std::string reply = encodeHelperMessage({HelperMessage::Kind::Reply, kNowhere, {}}).value();
  const std::string two = codedEvent({{"/a", HelperDictionary()}, {"/b", HelperDictionary()}});
  for (const std::string& bytes : {noViews, foreignTypes, sound.substr(0, 12), reply, two}) {
    RawCaller caller(machine->address());
    const RawCaller::Ticket ticket = caller.begin({kDelete, -1, 1, bytes.size()});
    ASSERT_EQ(ticket.refusal, "");
    ASSERT_EQ(::pwrite(ticket.memory.get(), bytes.data(), bytes.size(), 0), ssize_t(bytes.size()));
    EXPECT_EQ(caller.run(ticket.number).refusal, "unsound-message");
    EXPECT_EQ(caller.run(ticket.number).refusal, "no-ticket") << "a ticket is good once";
  }
  EXPECT_EQ(machine->log().find(" start"), std::string::npos);
}

TEST_F(HelperServiceTest, memoryThatItsCallerCanStillWriteIsRefused) {
  start({});
  const std::string file = rootsFile("kept");
  RawCaller caller(machine->address());
  const std::string message = codedEvent({{file, HelperDictionary{{"0", 1}}}});
  const RawCaller::Ticket ticket = caller.fill(kDelete, message);
  void* const window = ::mmap(nullptr, 1, PROT_READ | PROT_WRITE, MAP_SHARED, ticket.memory.get(), 0);
  ASSERT_NE(window, MAP_FAILED);
  EXPECT_EQ(caller.run(ticket.number).refusal, "unsound-message");
  ::munmap(window, 1);
  EXPECT_EQ(::access(file.c_str(), F_OK), 0);
}

TEST_F(HelperServiceTest, memoryThatItsCallerLeftOutIsRefused) {
  start({});
  RawCaller caller(machine->address());
  const RawCaller::Ticket ticket = caller.begin({kDelete, -1, 1, std::size_t{64} << 20});
  EXPECT_LT(::ftruncate(ticket.memory.get(), 1), 0);
  EXPECT_LT(::fallocate(ticket.memory.get(), FALLOC_FL_KEEP_SIZE, std::int64_t{64} << 20, 4096), 0);
  EXPECT_EQ(caller.run(ticket.number).refusal, "unsound-message");
  EXPECT_LT(std::atol(statusOf(machine->helper(), "RssShmem").c_str()), 4096);
}

TEST_F(HelperServiceTest, anEventThatIsStillFilledHoldsNoRoomForItsReply) {
  start({});
  ASSERT_EQ(::seteuid(kAlice), 0);  // the user of the next connection
  RawCaller alice(machine->address());
  ASSERT_EQ(::seteuid(0), 0);
  const RawCaller::Ticket largest =
      alice.begin({kDelete, -1, static_cast<std::uint32_t>(HelperLimits::paths), HelperLimits::bytes});
  ASSERT_EQ(largest.refusal, "");
  const std::string file = rootsFile("file");
  EXPECT_TRUE(machine->ask(kDelete, {{file, HelperDictionary{{"0", 1}}}}).flag) << machine->log();
}

TEST_F(HelperServiceTest, aTicketIsGoodForItsConnectionAlone) {
  start({});
  const std::string file = rootsFile("kept");
  RawCaller caller(machine->address());
  const RawCaller::Ticket ticket = caller.fill(kDelete, codedEvent({{file, HelperDictionary{{"0", 1}}}}));
  ASSERT_EQ(ticket.refusal, "");
  EXPECT_EQ(RawCaller(machine->address()).run(ticket.number).refusal, "no-ticket");
  EXPECT_EQ(caller.run(ticket.number + 1).refusal, "no-ticket");
  EXPECT_EQ(::access(file.c_str(), F_OK), 0);
  EXPECT_TRUE(caller.run(ticket.number).flag);
  EXPECT_NE(::access(file.c_str(), F_OK), 0);
}

TEST_F(HelperServiceTest, noTicketIsGoodBeforeTheYes) {
  startScripted(test::ScriptedPolkit::Mode::Wait);
  RawCaller caller(machine->address());
  caller.beginUnanswered(kOneDelete);
  ASSERT_TRUE(machine->polkit().waitForQuestions(1));
  for (std::uint64_t guess = 0; guess < 4; ++guess)
    EXPECT_EQ(caller.run(guess).refusal, "no-ticket") << guess;
}

TEST_F(HelperServiceTest, aCallerThatLeavesGivesItsTicketBack) {
  start({});
  auto caller = std::make_unique<RawCaller>(machine->address());
  ASSERT_EQ(caller->begin(kOneDelete).refusal, "");
  EXPECT_EQ(RawCaller(machine->address()).begin(kOneDelete).refusal, "too-many");
  caller.reset();
  ASSERT_TRUE(machine->waitForLog("refused: caller-left"));
  EXPECT_EQ(RawCaller(machine->address()).begin(kOneDelete).refusal, "");
}

TEST_F(HelperServiceTest, anEventOf33MegabytesIsAnsweredPathByPath) {
  start({});
  const Answer answer = machine->ask(kDelete, test::manyPaths(33'000, 1000));
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

/// An encoded event of `count` paths of 110 bytes, made without its dictionary, which would take more memory
/// than everything else.
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
  if (test::kIsMemoryDistorted) GTEST_SKIP() << "a checker takes memory of its own";
  constexpr std::uint32_t kCount = 250'000;
  start({});
  const std::string event = codedPaths(kCount);
  RawCaller caller(machine->address());
  std::string reply;
  EXPECT_TRUE(caller.run(caller.fill(kDelete, event).number, &reply).isThere);
  const auto view = MessageView::of(reply, HelperMessage::Kind::Reply);
  ASSERT_TRUE(view.has_value()) << machine->log();
  ASSERT_EQ(view->dictionary().size(), kCount);
  std::size_t sound = 0;
  for (const MessageView::Entry& entry : view->dictionary()) {
    const MessageView::Entry number = *entry.below.begin();
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

}  // namespace
}  // namespace sorrel::helper
