#pragma once

#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <utility>

#include "SorrelFramework/HelpTool/DBusHelperConnection.hpp"
#include "SorrelFramework/HelpTool/PrivilegeHelper.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/HelpTool/WireService.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/PrivateBus.hpp"
#include "Tests/Support/ScriptedHelper.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::test {

inline constexpr std::int32_t kDelete = 0;
inline constexpr std::int32_t kMaintenance = 2;
inline constexpr std::int32_t kCloseHelper = 3;

struct Reply {
  bool flag = false;
  std::int32_t code = -1;
  std::optional<HelperDictionary> dictionary;
};

/// A private bus, a service that acts as the helper, and callers of it.
class ConnectionKit : public testing::Test {
 protected:
  ConnectionKit() { Host::install(Host::macVolume(folder.path(), "alice", {})); }

  DBusHelperConnection::Options options() const { return {bus.address(), ::getuid()}; }
  void startService(WireService::Answer answer) {
    service = std::make_unique<WireService>(bus.address(), std::move(answer));
  }
  std::shared_ptr<HelperProtocol> helper() {
    return privilege.getHelperTool(kWireService, kSMDomainSystemLaunchd).helper;
  }
  /// Sends an event and waits for its reply.
  static Reply ask(HelperProtocol& helper, std::int32_t id, const HelperDictionary& dictionary,
                   std::chrono::milliseconds patience = kPatience) {
    const auto promise = std::make_shared<std::promise<Reply>>();
    helper.handleEvent(
        id, dictionary,
        [promise](bool flag, std::int32_t code, const std::optional<HelperDictionary>& answer) {
          promise->set_value({flag, code, answer});
        });
    std::future<Reply> reply = promise->get_future();
    const bool isThere = reply.wait_for(patience) == std::future_status::ready;
    EXPECT_TRUE(isThere);
    return isThere ? reply.get() : Reply();
  }
  /// Sends an event whose reply must not come.
  void askInVain(HelperProtocol& helper, std::int32_t id = kDelete) {
    helper.handleEvent(id, {{"/a", HelperDictionary()}},
                       [this](bool, std::int32_t, const std::optional<HelperDictionary>&) { ++replies; });
  }
  /// When this returns, the bus has noticed the end.
  void endService() {
    const std::string name = service->uniqueName();
    service.reset();
    const auto connection = sdbus::createSessionBusConnectionWithAddress(bus.address());
    const auto daemon = sdbus::createProxy(*connection, "org.freedesktop.DBus", "/org/freedesktop/DBus");
    for (bool isThere = true; isThere;) {
      daemon->callMethod("NameHasOwner")
          .onInterface("org.freedesktop.DBus")
          .withArguments(name)
          .storeResultsTo(isThere);
    }
  }
  void replaceService(WireService::Answer answer) {
    endService();
    startService(std::move(answer));
  }
  /// A helper whose lost calls are counted.
  std::shared_ptr<HelperProtocol> countedHelper() {
    counted = DBusHelperConnection::make(kWireService, options());
    EXPECT_NE(counted, nullptr);
    return counted->remoteObjectProxyWithErrorHandler([this] { ++losses; });
  }
  bool waitForLoss() {
    return runMainLoopUntil([this] { return losses > 0; });
  }
  bool waitUntilFieldsAreClear() {
    return runMainLoopUntil(
        [this] { return privilege.helpTool() == nullptr && privilege.helpConnect() == nullptr; });
  }
  void expectLostCall(WireService::Answer answer) {
    startService(std::move(answer));
    const auto held = helper();
    ASSERT_NE(held, nullptr);
    askInVain(*held);
    EXPECT_TRUE(waitUntilFieldsAreClear());
    EXPECT_EQ(replies, 0);
  }

  TemporaryFolder folder;
  PrivateBus bus;
  std::unique_ptr<WireService> service;
  std::atomic<int> replies = 0;
  std::atomic<int> losses = 0;
  std::shared_ptr<HelperConnection> counted;
  PrivilegeHelper privilege{
      std::make_shared<ScriptedInstallation>("", true),
      [this](const std::string& name) { return DBusHelperConnection::make(name, options()); }};
};

}  // namespace sorrel::test
