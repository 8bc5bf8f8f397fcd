#include "Helper/SystemTools.hpp"

#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>
#include <unistd.h>

#include <string>

#include "Tests/Support/PrivateBus.hpp"
#include "Tests/Support/ProcessState.hpp"
#include "Tests/Support/ScopedVariable.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::helper {
namespace {

using Answer = SystemTools::Answer;

class SystemToolsTest : public testing::Test {
 protected:
  [[nodiscard]] Answer run(const std::string& purpose, const std::string& program,
                           const char* argument = nullptr, bool renews = false) const {
    return SystemTools::ofThisMachine()->run(
        {purpose.c_str(), renews, {program.c_str(), argument, nullptr, nullptr}});
  }
  test::TemporaryFolder folder_;
};

TEST_F(SystemToolsTest, aCommandWithoutAPurposeIsNotRun) {
  const std::string program = folder_.script("program", "echo ran > " + folder_.path("trace"));
  EXPECT_EQ(run(folder_.path("none"), program), Answer::Absent);
  EXPECT_NE(::access(folder_.path("trace").c_str(), F_OK), 0);
  EXPECT_EQ(run(folder_.path(), program), Answer::Done);
  EXPECT_EQ(test::contentOf(folder_.path("trace")), "ran\n");
}

TEST_F(SystemToolsTest, aCommandThatFailsDiesOrIsMissingHasFailed) {
  EXPECT_EQ(run(folder_.path(), folder_.script("a", "exit 3")), Answer::Failed);
  EXPECT_EQ(run(folder_.path(), folder_.script("b", "kill -9 $$")), Answer::Failed);
  EXPECT_EQ(run(folder_.path(), folder_.path("none")), Answer::Failed);
  EXPECT_FALSE(test::hasChildProcesses());
}

TEST_F(SystemToolsTest, aCommandThatShouldRenewItsPurposeHasToDoSo) {
  const std::string index = folder_.file("index", "old");
  EXPECT_EQ(run(index, folder_.script("idle", "exit 0"), nullptr, true), Answer::Failed);
  const std::string program =
      folder_.script("build", "echo new > " + index + ".tmp && mv " + index + ".tmp " + index);
  EXPECT_EQ(run(index, program, nullptr, true), Answer::Done);
  EXPECT_EQ(test::contentOf(index), "new\n");
}

TEST_F(SystemToolsTest, argumentsStayOneWordAndNothingElseIsPassedOn) {
  const test::ScopedVariable secret("LD_PRELOAD_LIKE", "secret");
  const std::string trace = folder_.path("trace");
  const std::string program =
      folder_.script("program",
                     "streams=$(readlink /proc/$$/fd/0 /proc/$$/fd/1 /proc/$$/fd/2)\n"
                     "{ echo \"$# $1\"; env | grep -v '^PWD=\\|^SHLVL=\\|^_='; echo \"$streams\"; } > " +
                         trace);
  EXPECT_EQ(run(folder_.path(), program, "-i; touch x"), Answer::Done);
  EXPECT_EQ(test::contentOf(trace),
            "1 -i; touch x\nPATH=/usr/sbin:/usr/bin:/sbin:/bin\n/dev/null\n/dev/null\n/dev/null\n");
}

constexpr BusMethod kMethod = {"org.example.Cache", "/org/example/Cache", "org.example.Cache", "Flush"};

/// A service on a bus that replaces the system's.
class SystemToolsOnBus : public testing::Test {
 protected:
  void serve(std::function<void()> flush) {
    connection_ = sdbus::createSystemBusConnection();
    object_ = sdbus::createObject(*connection_, kMethod.path);
    object_->registerMethod(kMethod.method).onInterface(kMethod.interface).implementedAs(std::move(flush));
    object_->finishRegistration();
    connection_->requestName(kMethod.service);
    connection_->enterEventLoopAsync();
  }
  static Answer call() { return SystemTools::ofThisMachine()->call(kMethod); }

  test::PrivateBus bus_;
  test::ScopedVariable address_{"DBUS_SYSTEM_BUS_ADDRESS", bus_.address().c_str()};
  std::unique_ptr<sdbus::IConnection> connection_;
  std::unique_ptr<sdbus::IObject> object_;
};

TEST_F(SystemToolsOnBus, aServiceThatRunsIsCalled) {
  int calls = 0;
  serve([&calls] { ++calls; });
  EXPECT_EQ(call(), Answer::Done);
  EXPECT_EQ(calls, 1);
}

TEST_F(SystemToolsOnBus, aServiceThatDoesNotRunIsNotStarted) {
  const test::TemporaryFolder folder;
  bus_.addService(kMethod.service, "touch " + folder.path("started"));
  EXPECT_EQ(call(), Answer::Absent);
  EXPECT_NE(::access(folder.path("started").c_str(), F_OK), 0);
}

TEST_F(SystemToolsOnBus, anErrorOfTheServiceIsAFailure) {
  serve([] { throw sdbus::Error("org.example.Error", "no"); });
  EXPECT_EQ(call(), Answer::Failed);
}

TEST_F(SystemToolsOnBus, aServiceThatDoesNotReplyHasTimedOut) {
  serve([] { throw sdbus::Error("org.freedesktop.DBus.Error.NoReply", ""); });
  EXPECT_EQ(call(), Answer::TimedOut);
}

TEST_F(SystemToolsOnBus, withoutABusTheCallHasFailed) {
  bus_.stop();
  EXPECT_EQ(call(), Answer::Failed);
}

}  // namespace
}  // namespace sorrel::helper
