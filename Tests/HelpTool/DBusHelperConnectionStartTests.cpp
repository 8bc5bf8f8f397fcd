// Starting the helper, trusting its owner, and cases without any connection.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "SorrelFramework/HelpTool/DBusHelperConnection.hpp"
#include "Tests/HelpTool/BusCalls.hpp"
#include "Tests/HelpTool/ConnectionKit.hpp"
#include "Tests/Support/Checkers.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/ScopedVariable.hpp"

namespace sorrel {
namespace {

using namespace test;
using DBusHelperConnectionTest = ConnectionKit;

TEST_F(DBusHelperConnectionTest, aHelperThatCannotBeStartedIsNone) {
  const PrivilegeHelper::Tool none = privilege.getHelperTool(kWireService, kSMDomainSystemLaunchd);
  EXPECT_EQ(none.helper, nullptr);
  EXPECT_EQ(none.message, "HelperTool as? HelperProtocol");
}

TEST_F(DBusHelperConnectionTest, theBusStartsTheHelper) {
  const std::string mark = folder.path("started");
  bus.addService(kWireService, "/usr/bin/touch " + mark + "; exit 1");
  EXPECT_EQ(helper(), nullptr);
  EXPECT_TRUE(std::filesystem::exists(mark));
}

TEST_F(DBusHelperConnectionTest, theHelperMayTakeAnyTimeToStart) {
  bus.addService(kWireService, "exit 1");
  busCalls().takeTimeouts();
  EXPECT_EQ(helper(), nullptr);
  const std::vector<std::uint64_t> handed = busCalls().takeTimeouts();
  EXPECT_NE(std::ranges::find(handed, UINT64_MAX), handed.end());
}

TEST_F(DBusHelperConnectionTest, aBusThatVanishesWhileTheHelperStartsGivesAMessage) {
  const std::string gate = folder.path("gate");
  ASSERT_EQ(::mkfifo(gate.c_str(), 0600), 0);
  bus.addService(kWireService, "echo started > " + gate + "; exec cat " + gate);
  auto tool = std::async(std::launch::async,
                         [this] { return privilege.getHelperTool(kWireService, kSMDomainSystemLaunchd); });
  std::string word;
  std::ifstream(gate) >> word;
  EXPECT_EQ(word, "started");
  bus.stop();
  ASSERT_EQ(tool.wait_for(kPatience), std::future_status::ready);
  EXPECT_EQ(tool.get().message, "HelperTool as? HelperProtocol");
  // Ends the program that waits for the other end.
  const FileDescriptor writer(::open(gate.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  EXPECT_TRUE(waitUntilFieldsAreClear());
}

TEST_F(DBusHelperConnectionTest, closingNeverStartsAHelper) {
  const std::string mark = folder.path("started");
  bus.addService(kWireService, "/usr/bin/touch " + mark + "; exit 1");
  std::atomic<int> lost = 0;
  startService(WireService::echo);
  const auto connection = DBusHelperConnection::make(kWireService, options());
  ASSERT_NE(connection, nullptr);
  const auto proxy = connection->remoteObjectProxyWithErrorHandler([&] { ++lost; });
  ASSERT_NE(proxy, nullptr);
  service.reset();
  askInVain(*proxy, kCloseHelper);
  EXPECT_TRUE(runMainLoopUntil([&] { return lost == 1; }));
  EXPECT_FALSE(std::filesystem::exists(mark));
  askInVain(*proxy, kDelete);
  EXPECT_TRUE(runMainLoopUntil([&] { return lost == 2; }));
  EXPECT_TRUE(std::filesystem::exists(mark));
  EXPECT_EQ(replies, 0);
}

TEST_F(DBusHelperConnectionTest, nobodyButTheRightUserIsTrusted) {
  startService(WireService::echo);
  const auto connection = DBusHelperConnection::make(kWireService, {bus.address(), ::getuid() + 1});
  ASSERT_NE(connection, nullptr);
  connection->resume();
  EXPECT_EQ(connection->remoteObjectProxyWithErrorHandler([] {}), nullptr);
  EXPECT_TRUE(service->events().empty());
}

TEST_F(DBusHelperConnectionTest, eachCallLooksAtTheOwnerAgain) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "only root can be somebody else";
  const passwd* const nobody = ::getpwnam("nobody");  // a bus rejects unknown users
  ASSERT_NE(nobody, nullptr);
  startService(WireService::echo);
  std::atomic<int> lost = 0;
  const auto connection = DBusHelperConnection::make(kWireService, options());
  ASSERT_NE(connection, nullptr);
  const auto proxy = connection->remoteObjectProxyWithErrorHandler([&] { ++lost; });
  ASSERT_NE(proxy, nullptr);
  service.reset();
  std::filesystem::permissions(bus.folder(), std::filesystem::perms::all);
  std::thread([this, nobody] {
    // For this thread only; the C library would change all threads.
    ASSERT_EQ(::syscall(SYS_setresuid, -1, nobody->pw_uid, -1), 0);
    startService(WireService::echo);
  }).join();
  askInVain(*proxy);
  EXPECT_TRUE(runMainLoopUntil([&] { return lost + replies > 0; }));
  EXPECT_EQ(replies, 0);
  EXPECT_TRUE(service->events().empty());
}

TEST_F(DBusHelperConnectionTest, aNameThatNoBusTakesHasNoConnection) {
  EXPECT_EQ(DBusHelperConnection::make("Helper", options()), nullptr);
}

TEST(DBusHelperConnection, withoutASystemBusThereIsNoConnection) {
  const TemporaryFolder folder;
  const std::string nowhere = "unix:path=" + folder.path("nowhere");
  const ScopedVariable address("DBUS_SYSTEM_BUS_ADDRESS", nowhere.c_str());
  EXPECT_EQ(DBusHelperConnection::make(kWireService), nullptr);
}

TEST_F(DBusHelperConnectionTest, withoutDescriptorsThereIsNoConnection) {
  if (kHasAddressChecker) GTEST_SKIP() << "the checker needs descriptors too";
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const FileDescriptor next(::memfd_create("next", MFD_CLOEXEC));
  int found = 0;
  for (rlim_t more = 0; more < 8; ++more) {
    const rlimit few{static_cast<rlim_t>(next.get()) + 1 + more, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    found += DBusHelperConnection::make(kWireService, options()) != nullptr ? 1 : 0;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  }
  EXPECT_GT(found, 0);
  EXPECT_LT(found, 8);
}

}  // namespace
}  // namespace sorrel
