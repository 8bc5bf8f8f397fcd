// Helpers and buses that end, and their pending calls.
#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>

#include <atomic>
#include <filesystem>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "SorrelFramework/HelpTool/DBusHelperConnection.hpp"
#include "SorrelFramework/HelpTool/HelperWireNames.hpp"
#include "Tests/HelpTool/BusCalls.hpp"
#include "Tests/HelpTool/ConnectionKit.hpp"
#include "Tests/Support/Checkers.hpp"

namespace sorrel {
namespace {

using namespace test;
using DBusHelperConnectionTest = ConnectionKit;

/// Queries to the bus before a call is sent: the owner of the name, and that owner's user.
constexpr int kQuestions = 2;

/// Never replies.
void keepSilent(const WireService::Event&, WireService::Result&&) {}

TEST_F(DBusHelperConnectionTest, aHelperThatVanishesInMidCallAnswersNothing) {
  startService(keepSilent);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  askInVain(*held);
  ASSERT_TRUE(service->waitForEvents(1));
  service.reset();
  EXPECT_TRUE(waitUntilFieldsAreClear());
  EXPECT_EQ(replies, 0);
}

TEST_F(DBusHelperConnectionTest, anIdleHelperThatVanishesClearsTheFields) {
  startService(WireService::echo);
  ASSERT_NE(helper(), nullptr);
  service.reset();
  EXPECT_TRUE(waitUntilFieldsAreClear());
}

TEST_F(DBusHelperConnectionTest, aBusThatVanishesClearsTheFields) {
  startService(WireService::echo);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  // A service would not survive its bus.
  service.reset();
  bus.stop();
  EXPECT_TRUE(waitUntilFieldsAreClear());
}

TEST_F(DBusHelperConnectionTest, aBusThatVanishesInMidCallAnswersNothing) {
  startService(keepSilent);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  askInVain(*held);
  askInVain(*held);
  ASSERT_TRUE(service->waitForEvents(2));
  bus.stop();
  EXPECT_TRUE(waitUntilFieldsAreClear());
  EXPECT_EQ(replies, 0);
  const LeaksOfOthers leaks;  // sdbus-c++ leaks a bus object for an address without a listener
  EXPECT_EQ(helper(), nullptr);
}

TEST_F(DBusHelperConnectionTest, whatTheLastHelperAnsweredCountsWhenTheNextOneIsAsked) {
  std::promise<WireService::Result> first;
  startService([&first](const WireService::Event&, WireService::Result&& result) {
    first.set_value(std::move(result));
  });
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  std::promise<std::int32_t> code;
  held->handleEvent(1, {}, [&](bool, std::int32_t value, const std::optional<HelperDictionary>&) {
    code.set_value(value);
  });
  WireService::Result unanswered = first.get_future().get();
  // At the moment when the connection queries the owner.
  busCalls().before(0, [&] {
    // The pending answer must be destroyed before the service.
    WireService::reply(WireService::Result(std::move(unanswered)), true, 22, sealedReply(std::nullopt));
    service.reset();
    startService(WireService::echo);
  });
  EXPECT_TRUE(ask(*held, kDelete, {}).flag);
  auto answer = code.get_future();
  ASSERT_EQ(answer.wait_for(kPatience), std::future_status::ready);
  EXPECT_EQ(answer.get(), 22);
}

TEST_F(DBusHelperConnectionTest, aCallThatReachedNobodyGoesToTheNextHelper) {
  startService(WireService::echo);
  const auto held = countedHelper();
  ASSERT_NE(held, nullptr);
  busCalls().before(kQuestions, [&] { replaceService(WireService::echo); });
  const HelperDictionary event = {{"/a", HelperDictionary{{"0", 7}}}};
  const Reply reply = ask(*held, kDelete, event);
  EXPECT_TRUE(reply.flag);
  EXPECT_TRUE(reply.dictionary == event);
  EXPECT_EQ(service->events().size(), 1U);
  EXPECT_EQ(losses, 0);
}

TEST_F(DBusHelperConnectionTest, aCallGoesOutFiveTimesAtMost) {
  startService(WireService::echo);
  const auto held = countedHelper();
  ASSERT_NE(held, nullptr);
  std::atomic<int> tries = 0;
  std::function<void()> replaceAgain = [&] {
    replaceService(WireService::echo);
    if (++tries < 5) busCalls().before(kQuestions, replaceAgain);
  };
  busCalls().before(kQuestions, replaceAgain);
  askInVain(*held);
  EXPECT_TRUE(waitForLoss());
  EXPECT_TRUE(ask(*held, kDelete, {}).flag);  // later than any sixth try
  EXPECT_EQ(tries, 5);
  EXPECT_EQ(service->events().size(), 1U);
  EXPECT_EQ(replies, 0);
  EXPECT_EQ(losses, 1);
}

TEST_F(DBusHelperConnectionTest, anEventWhoseHelperGoesBeforeItRunsBeginsAgain) {
  startService(WireService::echo);
  const auto held = countedHelper();
  ASSERT_NE(held, nullptr);
  busCalls().before(kQuestions + 1, [&] { replaceService(WireService::echo); });
  EXPECT_TRUE(ask(*held, kDelete, {}).flag);
  EXPECT_EQ(service->events().size(), 1U);
  EXPECT_EQ(losses, 0);
}

TEST_F(DBusHelperConnectionTest, aHelperThatIsEndingSendsItsCallersToTheNext) {
  startService(WireService::echo);
  service->refuseWith("closing");
  const auto held = countedHelper();
  ASSERT_NE(held, nullptr);
  // Begin of the first try, then the queries of the second.
  busCalls().before(kQuestions + 1, [&] { replaceService(WireService::echo); });
  EXPECT_TRUE(ask(*held, kDelete, {}).flag);
  EXPECT_EQ(losses, 0);
}

TEST_F(DBusHelperConnectionTest, anEventThatAnEndingHelperRefusesToRunGoesToTheNext) {
  startService([this](const WireService::Event& event, WireService::Result&& result) {
    if (service->events().size() > 1) return WireService::echo(event, std::move(result));
    result.returnError(sdbus::Error(HelperWireNames(kWireService).refusalName(), HelperRefusal::closing));
  });
  const auto held = countedHelper();
  ASSERT_NE(held, nullptr);
  EXPECT_TRUE(ask(*held, kDelete, {}).flag);
  EXPECT_EQ(service->events().size(), 2U);
  EXPECT_EQ(losses, 0);
}

TEST_F(DBusHelperConnectionTest, aLostShredIsRepliedToFromTheDisk) {
  startService(keepSilent);
  const auto held = countedHelper();
  ASSERT_NE(held, nullptr);
  DBusHelperConnection::repliesToLostEvents = true;
  const std::string gone = folder.file("gone");
  auto reply = std::async(std::launch::async, [&] { return ask(*held, 1, {{gone, HelperDictionary()}}); });
  ASSERT_TRUE(service->waitForEvents(1));
  std::filesystem::remove(gone);
  service.reset();
  const Reply got = reply.get();
  DBusHelperConnection::repliesToLostEvents = false;
  EXPECT_TRUE(
      got.dictionary ==
      (HelperDictionary{{gone, HelperDictionary{{"Path", gone}, {"DeleteStatus", 0}, {"DeleteDesc", ""}}}}));
}

TEST_F(DBusHelperConnectionTest, aLostEventIsRepliedToFromTheDiskIfThatIsSwitchedOn) {
  startService(keepSilent);
  const auto held = countedHelper();
  ASSERT_NE(held, nullptr);
  DBusHelperConnection::repliesToLostEvents = true;
  const std::string gone = folder.file("gone");
  const std::string left = folder.file("left");
  auto reply = std::async(std::launch::async, [&] {
    return ask(*held, kDelete, {{gone, HelperDictionary{{"0", 1}}}, {left, HelperDictionary{{"0", 2}}}});
  });
  ASSERT_TRUE(service->waitForEvents(1));
  std::filesystem::remove(gone);
  service.reset();
  const Reply got = reply.get();
  DBusHelperConnection::repliesToLostEvents = false;
  EXPECT_FALSE(got.flag);
  const HelperDictionary deleted{{"0", 1}, {"DeleteStatus", 0}, {"DeleteDesc", ""}};
  const HelperDictionary failed{
      {"0", 2}, {"DeleteStatus", 2}, {"DeleteDesc", "The privileged helper ended before it had finished."}};
  EXPECT_TRUE(got.dictionary == (HelperDictionary{{gone, deleted}, {left, failed}}));
  EXPECT_EQ(losses, 1);
}

TEST_F(DBusHelperConnectionTest, aCallThatMayHaveBeenDoneIsNotSentAgain) {
  std::promise<void> isFree;
  startService([&](const WireService::Event&, WireService::Result&&) {
    service->giveUpName();
    isFree.set_value();
  });
  const auto held = countedHelper();
  ASSERT_NE(held, nullptr);
  askInVain(*held);
  isFree.get_future().wait();
  std::unique_ptr<WireService> last = std::move(service);
  startService(WireService::echo);
  last.reset();
  EXPECT_TRUE(waitForLoss());
  EXPECT_TRUE(ask(*held, kDelete, {}).flag);
  EXPECT_EQ(service->events().size(), 1U);
  EXPECT_EQ(replies, 0);
  EXPECT_EQ(losses, 1);
}

TEST_F(DBusHelperConnectionTest, onlyTheBusKnowsThatACallReachedNobody) {
  for (const char* name :
       {"org.freedesktop.DBus.Error.ServiceUnknown", "org.freedesktop.DBus.Error.NameHasNoOwner",
        "org.freedesktop.DBus.Error.AccessDenied"}) {
    losses = 0;
    startService([name](const WireService::Event&, WireService::Result&& result) {
      result.returnError(sdbus::Error(name, "somebody else is not there"));
    });
    const auto held = countedHelper();
    ASSERT_NE(held, nullptr);
    askInVain(*held);
    EXPECT_TRUE(waitForLoss());
    EXPECT_EQ(service->events().size(), 1U) << name;
    service.reset();
  }
  EXPECT_EQ(replies, 0);
}

TEST_F(DBusHelperConnectionTest, closingGoesToNoOtherHelperThatItWouldHaveToStart) {
  const std::string mark = folder.path("started");
  bus.addService(kWireService, "/usr/bin/touch " + mark + "; exit 1");
  startService(WireService::echo);
  const auto held = countedHelper();
  ASSERT_NE(held, nullptr);
  busCalls().before(kQuestions, [&] { endService(); });
  askInVain(*held, kCloseHelper);
  EXPECT_TRUE(waitForLoss());
  EXPECT_FALSE(std::filesystem::exists(mark));
  EXPECT_EQ(replies, 0);
}

TEST_F(DBusHelperConnectionTest, aHelperThatGoesBeforeItsUserIsKnownIsLookedUpAgain) {
  startService(WireService::echo);
  const auto held = countedHelper();
  ASSERT_NE(held, nullptr);
  busCalls().before(1, [&] { replaceService(WireService::echo); });
  EXPECT_TRUE(ask(*held, kDelete, {}).flag);
  busCalls().before(1, [&] { replaceService(WireService::echo); });
  EXPECT_NE(counted->remoteObjectProxyWithErrorHandler([] {}), nullptr);
  EXPECT_EQ(losses, 0);
}

TEST_F(DBusHelperConnectionTest, aHelperThatGaveUpItsNameStillAnswers) {
  std::promise<WireService::Result> waiting;
  startService([&](const WireService::Event&, WireService::Result&& result) {
    service->giveUpName();
    waiting.set_value(std::move(result));
  });
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  std::promise<std::int32_t> code;
  held->handleEvent(kDelete, {}, [&](bool, std::int32_t value, const std::optional<HelperDictionary>&) {
    code.set_value(value);
  });
  auto result = waiting.get_future();
  ASSERT_TRUE(waitUntilFieldsAreClear()) << "the connection knows that the name is free";
  const std::unique_ptr<WireService> last = std::move(service);
  startService(WireService::echo);
  EXPECT_TRUE(ask(*held, kDelete, {}).flag);
  WireService::reply(result.get(), true, 22, sealedReply(std::nullopt));
  auto answer = code.get_future();
  ASSERT_EQ(answer.wait_for(kPatience), std::future_status::ready);
  EXPECT_EQ(answer.get(), 22);
}

TEST_F(DBusHelperConnectionTest, theLastHolderMayGoWhileTheHelperDoes) {
  const auto owner = sdbus::createSessionBusConnectionWithAddress(bus.address());
  for (int i = 0; i < 2000; ++i) {
    owner->requestName(kWireService);
    auto connection = DBusHelperConnection::make(kWireService, options());
    ASSERT_NE(connection, nullptr);
    connection->resume();
    ASSERT_NE(connection->remoteObjectProxyWithErrorHandler([] {}), nullptr);
    owner->releaseName(kWireService);
    // The connection is notified of it about now.
    for (int spin = 0; spin < i % 100; ++spin) std::this_thread::yield();
    connection.reset();
  }
}

TEST_F(DBusHelperConnectionTest, callsOfADeadConnectionAreLost) {
  startService(WireService::echo);
  const auto connection = DBusHelperConnection::make(kWireService, options());
  ASSERT_NE(connection, nullptr);
  std::atomic<bool> isInvalid = false;
  std::atomic<int> lost = 0;
  connection->setInvalidationHandler([&] { isInvalid = true; });
  connection->resume();
  const auto proxy = connection->remoteObjectProxyWithErrorHandler([&] { ++lost; });
  ASSERT_NE(proxy, nullptr);
  service.reset();
  bus.stop();
  EXPECT_TRUE(runMainLoopUntil([&] { return isInvalid.load(); }));
  askInVain(*proxy);
  proxy->getHelperVersion([this](const std::string&) { ++replies; });
  EXPECT_TRUE(runMainLoopUntil([&] { return lost == 2; }));
  EXPECT_EQ(connection->remoteObjectProxyWithErrorHandler([] {}), nullptr);
  EXPECT_EQ(replies, 0);
}

TEST_F(DBusHelperConnectionTest, aKeptProxyReachesTheNextHelper) {
  startService(WireService::echo);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  service.reset();
  ASSERT_TRUE(waitUntilFieldsAreClear());
  startService(WireService::echo);
  EXPECT_TRUE(ask(*held, kDelete, {}).flag);
}

}  // namespace
}  // namespace sorrel
