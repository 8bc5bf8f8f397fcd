#include "SorrelFramework/HelpTool/DBusHelperConnection.hpp"

#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <future>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/HelpTool/EventRefusal.hpp"
#include "SorrelFramework/HelpTool/SealedMemory.hpp"
#include "Tests/HelpTool/BusCalls.hpp"
#include "Tests/HelpTool/ConnectionKit.hpp"
#include "Tests/Support/ManyPaths.hpp"
#include "Tests/Support/ProcessState.hpp"

namespace sorrel {
namespace {

using namespace test;
using DBusHelperConnectionTest = ConnectionKit;

/// One number more than a path may have.
HelperDictionary overACap() {
  HelperDictionary numbers;
  for (int i = 0; i < 65; ++i) numbers.emplace(std::to_string(i), i);
  return {{"/a", numbers}};
}

TEST_F(DBusHelperConnectionTest, anEventAndItsReplyKeepEveryByte) {
  startService(WireService::echo);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  const HelperDictionary dictionary = {{"/tmp/\xff\n-rf %20", HelperDictionary{{"0", 7}, {"1", -1}}},
                                       {"OperationValue", 2}};
  const Reply reply = ask(*held, kDelete, dictionary);
  EXPECT_TRUE(reply.flag);
  EXPECT_EQ(reply.code, kDelete);
  EXPECT_TRUE(reply.dictionary == dictionary);
}

TEST_F(DBusHelperConnectionTest, flagAndCodeComeFromTheHelper) {
  startService([](const WireService::Event&, WireService::Result&& result) {
    WireService::reply(std::move(result), false, -5, sealedReply(std::nullopt));
  });
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  const Reply reply = ask(*held, 2, {{"OperationValue", 0}});
  EXPECT_FALSE(reply.flag);
  EXPECT_EQ(reply.code, -5);
  EXPECT_FALSE(reply.dictionary.has_value());
  EXPECT_EQ(service->events().at(0).id, 2);
}

TEST_F(DBusHelperConnectionTest, eachPathTravelsWithWhatTheSenderSees) {
  startService(WireService::echo);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  const std::string file = folder.file("a");
  const std::string missing = folder.path("b");
  ask(*held, kDelete, {{file, HelperDictionary()}, {missing, HelperDictionary()}, {"Operation", 1}});
  ASSERT_EQ(service->events().size(), 1U);
  const std::optional<HelperMessage> message = service->events()[0].message;
  ASSERT_TRUE(message.has_value());
  // In the order of the keys: "/.../a", "/.../b", "Operation".
  ASSERT_EQ(message->views.size(), 3U);
  EXPECT_TRUE(message->views[0] == viewOf(file));
  EXPECT_EQ(message->views[0].kind, SenderView::Kind::Present);
  EXPECT_EQ(message->views[1].kind, SenderView::Kind::Absent);
  EXPECT_EQ(message->views[2].kind, SenderView::Kind::NoPath);
}

TEST_F(DBusHelperConnectionTest, versionAndUninstallAreAsked) {
  startService(WireService::echo);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  std::promise<std::string> version;
  held->getHelperVersion([&](const std::string& text) { version.set_value(text); });
  EXPECT_EQ(version.get_future().get(), "1.2.3");
  std::promise<std::pair<bool, std::string>> uninstalled;
  held->uninstall([&](bool flag, const std::string& text) { uninstalled.set_value({flag, text}); });
  EXPECT_EQ(uninstalled.get_future().get(), std::pair(true, std::string("gone")));
}

TEST_F(DBusHelperConnectionTest, anEventMayNameVeryManyPaths) {
  startService(WireService::echo);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  const HelperDictionary paths = manyPaths(33'000, 1000);  // 33 MB
  EXPECT_TRUE(ask(*held, kDelete, paths, 5 * kPatience).dictionary == paths);
}

TEST_F(DBusHelperConnectionTest, anEventMayHave200Megabytes) {
  startService([](const WireService::Event& event, WireService::Result&& result) {
    const bool isWhole = event.message.has_value() && event.message->dictionary->size() == 200;
    WireService::reply(std::move(result), isWhole, 0, sealedReply(std::nullopt));
  });
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  EXPECT_TRUE(ask(*held, kDelete, manyPaths(200, 1'000'000), 5 * kPatience).flag);
}

TEST_F(DBusHelperConnectionTest, anEventOverACapIsAnsweredAtOnce) {
  startService(WireService::echo);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  const Reply reply = ask(*held, kDelete, overACap());
  EXPECT_FALSE(reply.flag);
  EXPECT_EQ(reply.code, static_cast<std::int32_t>(HelperEventErrorID::NoCause));
  EXPECT_TRUE(reply.dictionary == refusalOf(kDelete, overACap(), "Nothing was done."));
  EXPECT_TRUE(service->events().empty());
  EXPECT_EQ(privilege.helpTool(), held);
}

TEST_F(DBusHelperConnectionTest, aRefusedEventIsOneWhosePathsFailed) {
  startService(WireService::echo);
  service->refuseWith("not-authorised");
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  const std::vector<std::pair<std::int32_t, HelperDictionary>> events = {
      {kDelete, {{"/a", HelperDictionary{{"0", 7}}}}},
      {kMaintenance, {{"OperationValue", 2}, {"/a", HelperDictionary()}}},
      {kMaintenance, {{"OperationValue", 0}}}};
  for (const auto& [id, event] : events) {
    const Reply reply = ask(*held, id, event);
    EXPECT_FALSE(reply.flag);
    EXPECT_EQ(reply.code, static_cast<std::int32_t>(HelperEventErrorID::NoCause));
    EXPECT_TRUE(reply.dictionary == refusalOf(id, event, "The operation was not authorised."));
  }
  EXPECT_TRUE(service->events().empty());
  EXPECT_EQ(privilege.helpTool(), held) << "a refusal is no loss";
}

TEST_F(DBusHelperConnectionTest, stopReachesTheHelperOnlyWithAnEventUnderWay) {
  std::promise<WireService::Result> waiting;
  startService(
      [&](const WireService::Event&, WireService::Result&& result) { waiting.set_value(std::move(result)); });
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  EXPECT_FALSE(privilege.stopEvents());
  const std::string file = folder.file("a");
  std::promise<std::int64_t> status;
  held->handleEvent(kDelete, {{file, HelperDictionary()}},
                    [&](bool, std::int32_t, const std::optional<HelperDictionary>& answer) {
                      const auto* entry = answer->begin()->second.asDictionary();
                      status.set_value(*entry->at("DeleteStatus").asNumber());
                    });
  auto result = waiting.get_future();
  ASSERT_EQ(result.wait_for(kPatience), std::future_status::ready);
  EXPECT_TRUE(privilege.stopEvents());
  EXPECT_TRUE(runMainLoopUntil([this] { return service->stops() == 1; }));
  std::filesystem::remove(file);
  WireService::reply(result.get(), false, 2,
                     sealedReply(HelperDictionary{{"0000000", HelperDictionary{{"DeleteStatus", 2}}}}));
  EXPECT_EQ(status.get_future().get(), 0) << "the file is gone from the disk";
  EXPECT_FALSE(privilege.stopEvents());
}

TEST_F(DBusHelperConnectionTest, repliesComeInAnyOrder) {
  std::mutex mutex;
  std::vector<WireService::Result> waiting;
  startService([&](const WireService::Event& event, WireService::Result&& result) {
    const std::lock_guard lock(mutex);
    waiting.push_back(std::move(result));
    if (event.id != 2) return;
    for (std::size_t i = waiting.size(); i-- > 0;) {
      WireService::reply(std::move(waiting[i]), true, static_cast<std::int32_t>(i),
                         sealedReply(std::nullopt));
    }
  });
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  std::vector<std::int32_t> codes(3, -1);
  std::atomic<int> done = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    held->handleEvent(static_cast<std::int32_t>(i), {},
                      [&, i](bool, std::int32_t code, const std::optional<HelperDictionary>&) {
                        codes[i] = code;
                        ++done;
                      });
  }
  EXPECT_TRUE(runMainLoopUntil([&] { return done == 3; }));
  EXPECT_EQ(codes, (std::vector<std::int32_t>{0, 1, 2}));
}

TEST_F(DBusHelperConnectionTest, aReplyInUnsealedMemoryIsRefused) {
  expectLostCall([](const WireService::Event&, WireService::Result&& result) {
    const std::string bytes =
        encodeHelperMessage({HelperMessage::Kind::Reply, HelperDictionary(), {}}).value_or("");
    const FileDescriptor memory(::memfd_create("unsealed", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    EXPECT_EQ(::write(memory.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    WireService::reply(std::move(result), true, 0, memory);
  });
}

TEST_F(DBusHelperConnectionTest, aReplyThatIsNoMessageIsRefused) {
  expectLostCall([](const WireService::Event&, WireService::Result&& result) {
    WireService::reply(std::move(result), true, 0, SealedMemory::make("nonsense"));
  });
}

TEST_F(DBusHelperConnectionTest, anErrorIsNoReply) {
  expectLostCall([](const WireService::Event&, WireService::Result&& result) {
    result.returnError(sdbus::Error("org.example.Error.Failed", "no"));
  });
}

TEST_F(DBusHelperConnectionTest, noCallHasATimeOut) {
  startService(WireService::echo);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  busCalls().takeTimeouts();
  ask(*held, kDelete, {});
  const std::vector<std::uint64_t> handed = busCalls().takeTimeouts();
  ASSERT_FALSE(handed.empty());
  EXPECT_EQ(handed.back(), UINT64_MAX);
}

TEST_F(DBusHelperConnectionTest, aReplyMayDropTheLastHolders) {
  startService(WireService::echo);
  auto connection = DBusHelperConnection::make(kWireService, options());
  ASSERT_NE(connection, nullptr);
  connection->resume();
  auto held = connection->remoteObjectProxyWithErrorHandler([] {});
  ASSERT_NE(held, nullptr);
  std::promise<void> isDone;
  held->handleEvent(kDelete, {}, [&isDone](bool, std::int32_t, const std::optional<HelperDictionary>&) {
    isDone.set_value();
  });
  held.reset();
  connection.reset();
  EXPECT_EQ(isDone.get_future().wait_for(kPatience), std::future_status::ready);
}

TEST_F(DBusHelperConnectionTest, aReplyMayAskForTheHelperAgain) {
  startService(WireService::echo);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  const auto connection = privilege.helpConnect();
  std::promise<bool> isThere;
  held->handleEvent(kDelete, {}, [&](bool, std::int32_t, const std::optional<HelperDictionary>&) {
    isThere.set_value(connection->remoteObjectProxyWithErrorHandler([] {}) != nullptr);
  });
  EXPECT_TRUE(isThere.get_future().get());
}

TEST_F(DBusHelperConnectionTest, repliesLeaveNoDescriptorsOpen) {
  startService(WireService::echo);
  const auto held = helper();
  ASSERT_NE(held, nullptr);
  ask(*held, kDelete, {});
  const std::size_t before = openDescriptors();
  for (int i = 0; i < 20; ++i) ask(*held, kDelete, {{"/a", HelperDictionary()}});
  EXPECT_LT(openDescriptors(), before + 8);  // the last ones may still be in the process of ending
}

}  // namespace
}  // namespace sorrel
