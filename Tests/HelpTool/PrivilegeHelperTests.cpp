#include "SorrelFramework/HelpTool/PrivilegeHelper.hpp"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Machine/UserDefaults.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/ScriptedHelper.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

using test::ScriptedConnection;
using test::ScriptedHelper;
using test::ScriptedInstallation;

const std::string kName = "org.example.testHelper";
constexpr const char* kNoConnection = "HelperTool as? HelperProtocol";

class PrivilegeHelperTest : public testing::Test {
 protected:
  PrivilegeHelperTest() { install({}); }

  /// The main bundle with this info dictionary.
  void install(std::map<std::string, std::string> info) const {
    Host::install(Host::macVolume(volume.path(), "alice",
                                  {"org.example.test", volume.path("Resources"), std::move(info)}));
  }
  PrivilegeHelper::Tool get() { return privilege.getHelperTool(kName, kSMDomainSystemLaunchd); }
  std::optional<std::string> installedVersion() const {
    return UserDefaults::standard().string(kName + "-Install");
  }
  void addServiceFile() const { volume.file("installed/" + kName + ".service"); }
  void addProgram() const { volume.file("installed/" + kName); }

  test::TemporaryVolume volume;
  std::shared_ptr<ScriptedInstallation> installation =
      std::make_shared<ScriptedInstallation>(volume.path("installed"));
  std::shared_ptr<ScriptedHelper> helper = std::make_shared<ScriptedHelper>();
  std::vector<std::shared_ptr<ScriptedConnection>> connections;
  std::vector<std::string> connectedNames;
  bool hasConnection = true;
  PrivilegeHelper privilege{installation, [this](const std::string& name) {
                              connectedNames.push_back(name);
                              if (!hasConnection) return std::shared_ptr<ScriptedConnection>();
                              return connections.emplace_back(std::make_shared<ScriptedConnection>(helper));
                            }};
};

TEST_F(PrivilegeHelperTest, startsWithoutConnectionAndHelper) {
  EXPECT_EQ(privilege.helpConnect(), nullptr);
  EXPECT_EQ(privilege.helpTool(), nullptr);
}

TEST_F(PrivilegeHelperTest, anInstalledHelperIsConnectedWithoutInstallation) {
  addServiceFile();
  addProgram();
  const PrivilegeHelper::Tool tool = get();
  EXPECT_EQ(tool.helper, helper);
  EXPECT_FALSE(tool.message.has_value());
  EXPECT_TRUE(installation->installations().empty());
  ASSERT_EQ(connections.size(), 1U);
  EXPECT_TRUE(connections[0]->isResumed());
  EXPECT_EQ(connectedNames, std::vector<std::string>{kName});
  EXPECT_EQ(privilege.helpConnect(), connections[0]);
  EXPECT_EQ(privilege.helpTool(), helper);
}

TEST_F(PrivilegeHelperTest, aServiceFileWithoutTheProgramIsInstalledAgain) {
  addServiceFile();
  EXPECT_EQ(get().helper, helper);
  EXPECT_EQ(installation->installations(), std::vector<std::string>{"kSMDomainSystemLaunchd " + kName});
}

TEST_F(PrivilegeHelperTest, aProgramWithoutTheServiceFileIsInstalledAgain) {
  addProgram();
  EXPECT_EQ(get().helper, helper);
  EXPECT_EQ(installation->installations().size(), 1U);
}

TEST_F(PrivilegeHelperTest, anInstalledHelperIsNeverReplacedByDefault) {
  addServiceFile();
  addProgram();
  install({{"CFBundleVersion", "2.0"}});
  UserDefaults::standard().set(kName + "-Install", "1.0");
  EXPECT_EQ(get().helper, helper);
  install({{"CFBundleVersion", "2.0"}, {"ReInstallHelper", "false"}});
  EXPECT_EQ(get().helper, helper);
  EXPECT_TRUE(installation->installations().empty());
}

TEST_F(PrivilegeHelperTest, reInstallHelperRenewsWhereNoVersionIsKnown) {
  addServiceFile();
  addProgram();
  install({{"CFBundleVersion", "2.0"}, {"ReInstallHelper", "true"}});
  EXPECT_EQ(get().helper, helper);
  EXPECT_EQ(installation->installations().size(), 1U);
  EXPECT_EQ(installedVersion(), "2.0");
}

TEST_F(PrivilegeHelperTest, reInstallHelperRenewsAnotherVersionOnce) {
  addServiceFile();
  addProgram();
  install({{"CFBundleVersion", "2.0"}, {"ReInstallHelper", "YES"}});
  UserDefaults::standard().set(kName + "-Install", "1.9");
  EXPECT_EQ(get().helper, helper);
  EXPECT_EQ(installation->installations().size(), 1U);
  EXPECT_EQ(get().helper, helper);
  EXPECT_EQ(installation->installations().size(), 1U);
}

TEST_F(PrivilegeHelperTest, aBundleWithoutAVersionCountsAsOne) {
  EXPECT_EQ(get().helper, helper);
  EXPECT_EQ(installedVersion(), "1.0.0");
  install({{"ReInstallHelper", "1"}});
  EXPECT_EQ(get().helper, helper);
  EXPECT_EQ(installation->installations().size(), 1U);
}

TEST_F(PrivilegeHelperTest, aFailedInstallationGivesItsTextAndNoHelper) {
  const PrivilegeInstallResult kOutcomes[] = {
      PrivilegeInstallResult::authorizationFail, PrivilegeInstallResult::getAdmainFail,
      PrivilegeInstallResult::blessError(8), PrivilegeInstallResult::blessError(9)};
  for (const PrivilegeInstallResult& outcome : kOutcomes) {
    installation->setOutcome(outcome);
    const PrivilegeHelper::Tool tool = get();
    EXPECT_EQ(tool.helper, nullptr);
    EXPECT_EQ(tool.message, outcome.content());
  }
  EXPECT_EQ(installation->installations().size(), 4U);  // requested again each time
  EXPECT_TRUE(connections.empty());
  EXPECT_FALSE(installedVersion().has_value());
}

TEST_F(PrivilegeHelperTest, aSecondCallReusesTheHelper) {
  EXPECT_EQ(get().helper, helper);
  EXPECT_EQ(get().helper, helper);
  EXPECT_EQ(connections.size(), 1U);
  EXPECT_EQ(installation->installations().size(), 1U);
}

TEST_F(PrivilegeHelperTest, withoutAConnectionThereIsAMessage) {
  hasConnection = false;
  const PrivilegeHelper::Tool tool = get();
  EXPECT_EQ(tool.helper, nullptr);
  EXPECT_EQ(tool.message, kNoConnection);
  EXPECT_EQ(privilege.helpConnect(), nullptr);
}

TEST_F(PrivilegeHelperTest, withoutAHelperTheConnectionStays) {
  helper = nullptr;
  const PrivilegeHelper::Tool tool = get();
  EXPECT_EQ(tool.helper, nullptr);
  EXPECT_EQ(tool.message, kNoConnection);
  EXPECT_EQ(privilege.helpTool(), nullptr);
  ASSERT_EQ(connections.size(), 1U);
  EXPECT_EQ(privilege.helpConnect(), connections[0]);
  EXPECT_EQ(get().message, kNoConnection);
  EXPECT_EQ(connections.size(), 1U);
}

TEST_F(PrivilegeHelperTest, everyInstallationDropsTheConnection) {
  for (const PrivilegeInstallResult& outcome :
       {PrivilegeInstallResult::success, PrivilegeInstallResult::authorizationFail,
        PrivilegeInstallResult::getAdmainFail, PrivilegeInstallResult::blessError(4)}) {
    installation->setOutcome(PrivilegeInstallResult::success);
    ASSERT_EQ(get().helper, helper);
    installation->setOutcome(outcome);
    EXPECT_EQ(privilege.installPrivilege(kSMDomainSystemLaunchd, kName), outcome.content());
    EXPECT_EQ(privilege.helpConnect(), nullptr);
    EXPECT_EQ(privilege.helpTool(), nullptr);
  }
  EXPECT_EQ(connections.size(), 4U);
}

TEST_F(PrivilegeHelperTest, aLostCallClearsTheFieldsOnTheMainQueue) {
  ASSERT_EQ(get().helper, helper);
  std::thread([this] { connections[0]->loseCall(); }).join();
  EXPECT_NE(privilege.helpTool(), nullptr);
  EXPECT_NE(privilege.helpConnect(), nullptr);
  EXPECT_TRUE(test::drainMainQueue());
  EXPECT_EQ(privilege.helpTool(), nullptr);
  EXPECT_EQ(privilege.helpConnect(), nullptr);
  EXPECT_EQ(get().helper, helper);
  EXPECT_EQ(connections.size(), 2U);
}

TEST_F(PrivilegeHelperTest, anInvalidConnectionClearsTheFieldsOnTheMainQueue) {
  ASSERT_EQ(get().helper, helper);
  std::thread([this] { connections[0]->invalidate(); }).join();
  EXPECT_NE(privilege.helpTool(), nullptr);
  EXPECT_TRUE(test::drainMainQueue());
  EXPECT_EQ(privilege.helpTool(), nullptr);
  EXPECT_EQ(privilege.helpConnect(), nullptr);
}

TEST_F(PrivilegeHelperTest, aConnectionMayOutliveTheObject) {
  auto connection = std::make_shared<ScriptedConnection>(helper);
  addServiceFile();
  addProgram();
  {
    PrivilegeHelper other(installation, [&](const std::string&) { return connection; });
    ASSERT_EQ(other.getHelperTool(kName, kSMDomainSystemLaunchd).helper, helper);
    connection->invalidate();
  }
  connection->loseCall();
  EXPECT_TRUE(test::drainMainQueue());
}

TEST_F(PrivilegeHelperTest, closeHelperSendsOneEmptyEvent) {
  ASSERT_EQ(get().helper, helper);
  privilege.closeHelper();
  ASSERT_EQ(helper->events().size(), 1U);
  EXPECT_EQ(helper->events()[0].id, static_cast<std::int32_t>(HelperHanldeEventID::CloseHelper));
  EXPECT_TRUE(helper->events()[0].dictionary.empty());
  EXPECT_EQ(privilege.helpTool(), helper);
  EXPECT_NE(privilege.helpConnect(), nullptr);
}

TEST_F(PrivilegeHelperTest, closeHelperWithoutAHelperSendsNothing) {
  privilege.closeHelper();
  EXPECT_TRUE(helper->events().empty());
  EXPECT_TRUE(connections.empty());
}

TEST_F(PrivilegeHelperTest, theReplyToCloseHelperIsTakenSilently) {
  helper = std::make_shared<ScriptedHelper>(
      [](const ScriptedHelper::Event&) {
        return ScriptedHelper::Reply{false, 5, std::nullopt};
      },
      ScriptedHelper::Thread::Caller);
  ASSERT_EQ(get().helper, helper);
  privilege.closeHelper();
  EXPECT_EQ(helper->events().size(), 1U);
}

TEST_F(PrivilegeHelperTest, manyThreadsGetAHelperWhileOthersLoseIt) {
  addServiceFile();
  addProgram();
  // The connector of the fixture records connections; this one does not.
  PrivilegeHelper other(installation,
                        [this](const std::string&) { return std::make_shared<ScriptedConnection>(helper); });
  std::vector<std::thread> threads;
  std::vector<int> found(4);
  threads.reserve(found.size());
  for (int& count : found) {
    threads.emplace_back([&other, &count, this] {
      for (int i = 0; i < 200; ++i) {
        count += other.getHelperTool(kName, kSMDomainSystemLaunchd).helper == helper ? 1 : 0;
        if (i % 10 == 0) other.installPrivilege(kSMDomainSystemLaunchd, kName);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(found, std::vector<int>(4, 200));
}

TEST(PrivilegeHelper, shardIsOneObject) { EXPECT_EQ(&PrivilegeHelper::shard(), &PrivilegeHelper::shard()); }

}  // namespace
}  // namespace sorrel
