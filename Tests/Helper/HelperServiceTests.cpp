#include "Helper/HelperService.hpp"

#include <gtest/gtest.h>
#include <TestPlaces.hpp>

#include <cstdlib>
#include <future>
#include <string>
#include <utility>
#include <vector>

#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/HelpTool/MessageView.hpp"
#include "Tests/Helper/HelperServiceKit.hpp"
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

TEST_F(HelperServiceTest, whatCanBeNoEventIsRefusedWithoutAQuestion) {
  start({});
  const std::string reply = encodeHelperMessage({HelperMessage::Kind::Reply, kNowhere, {}}).value();
  const std::string long_ = codedEvent({{"OperationValue", 0}}) + std::string(std::size_t{5} << 20, 'x');
  const std::vector<std::pair<std::int32_t, std::string>> events = {{kDelete, "nonsense"},
                                                                    {kDelete, reply},
                                                                    {kMaintenance, codedEvent(kNowhere)},
                                                                    {kMaintenance, long_},
                                                                    {kClose, codedEvent(kNowhere)}};
  for (const auto& [id, bytes] : events) {
    const Answer answer = machine->askRaw(id, bytes);
    EXPECT_TRUE(answer.isThere);
    EXPECT_FALSE(answer.flag);
    EXPECT_TRUE(answer.dictionary.empty());
  }
  EXPECT_TRUE(machine->polkit().questions().empty());
}

TEST_F(HelperServiceTest, anEventThatTurnsOutUnsoundIsRefusedAsAWhole) {
  start({});
  const std::string noViews = encodeHelperMessage({HelperMessage::Kind::Event, kNowhere, {}}).value();
  const std::string foreignTypes = codedEvent({{"/a", HelperDictionary{{"0", "text"}}}});
  const std::string cut = codedEvent(kNowhere).substr(0, 12);
  for (const std::string& bytes : {noViews, foreignTypes, cut}) {
    const Answer answer = machine->askRaw(kDelete, bytes);
    EXPECT_TRUE(answer.isThere);
    EXPECT_FALSE(answer.flag);
    EXPECT_EQ(answer.code, kNoCause);
    EXPECT_TRUE(answer.dictionary.empty());
  }
  EXPECT_EQ(machine->polkit().questions().size(), 3U);
  EXPECT_EQ(machine->log().find(" start"), std::string::npos);
}

TEST_F(HelperServiceTest, aRefusalOfAHugeEventListsNoPathsAndReadsNone) {
  startScripted(ScriptedPolkit::Mode::No);
  const Answer answer = machine->ask(kDelete, test::manyPaths(33'000, 1000));
  ASSERT_TRUE(answer.isThere) << machine->log();
  EXPECT_FALSE(answer.flag);
  EXPECT_TRUE(answer.dictionary.empty());
  EXPECT_EQ(machine->polkit().questions().back().details.at("count"), "33000");
  EXPECT_LT(std::atol(statusOf(machine->helper(), "RssShmem").c_str()), 4096);
}

TEST_F(HelperServiceTest, aUserWhoCollectsRefusalsRunsOutOfThem) {
  startScripted(ScriptedPolkit::Mode::No);
  const HelperDictionary event = test::manyPaths(10'000, 1000);  // a third of the budget
  EXPECT_EQ(machine->ask(kDelete, event).dictionary.size(), 10'000U);
  EXPECT_EQ(machine->ask(kDelete, event).dictionary.size(), 10'000U);
  const Answer third = machine->ask(kDelete, event);
  EXPECT_TRUE(third.isThere);
  EXPECT_FALSE(third.flag);
  EXPECT_TRUE(third.dictionary.empty());
  // Nobody else pays for that, and what is authorised is no refusal.
  EXPECT_EQ(machine->askAs(kAlice, kDelete, event).dictionary.size(), 10'000U);
  machine->polkit().setMode(ScriptedPolkit::Mode::Yes);
  EXPECT_EQ(machine->ask(kDelete, event).dictionary.size(), 10'000U);
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
  if (test::kIsMemoryDistorted) GTEST_SKIP() << "a checker takes memory of its own";
  constexpr std::uint32_t kCount = 250'000;
  start({});
  const std::string event = codedPaths(kCount);
  const std::string reply = machine->askForBytes(kDelete, event);
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

}  // namespace
}  // namespace sorrel::helper
