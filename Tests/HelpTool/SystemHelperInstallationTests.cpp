#include "SorrelFramework/HelpTool/SystemHelperInstallation.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/Support/TemporaryFolder.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

const std::string kName = "org.example.testHelper";

TEST(SystemHelperInstallation, aMacVolumeKeepsTheHelperInItsLibrary) {
  const test::TemporaryVolume volume;
  volume.install();
  const SystemHelperInstallation installation;
  EXPECT_EQ(installation.serviceFile(kName), volume.path("Library/LaunchDaemons/" + kName + ".plist"));
  EXPECT_EQ(installation.program(kName), volume.path("Library/PrivilegedHelperTools/" + kName));
}

TEST(SystemHelperInstallation, theDesktopKeepsAServiceOfTheSystemBus) {
  Host::install(Host::linuxDesktop({}));
  const SystemHelperInstallation installation;
  EXPECT_EQ(installation.serviceFile(kName), "/usr/share/dbus-1/system-services/" + kName + ".service");
  EXPECT_EQ(installation.program(kName), "/usr/libexec/" + kName);
}

class SystemHelperInstallationTest : public testing::Test {
 protected:
  SystemHelperInstallationTest() {
    Host host = Host::macVolume(folder.path(), "alice", {"org.example.test", folder.folder("Resources"), {}});
    host.setToolFolder(folder.folder("tools"));
    Host::install(host);
  }
  /// A stand-in of pkexec; it writes its arguments to the file "arguments".
  void addPkexec(const std::string& commands) const {
    folder.script("tools/pkexec", "printf '%s\\n' \"$@\" > " + folder.path("arguments") + "\n" + commands);
  }
  void addInstaller() const { folder.script("Resources/install-helper", "exit 0"); }
  static std::string install() {
    return SystemHelperInstallation().install("kSMDomainSystemLaunchd", kName).content();
  }

  test::TemporaryFolder folder;
};

TEST_F(SystemHelperInstallationTest, runsTheInstallerOfTheBundleAsRoot) {
  addPkexec("exit 0");
  addInstaller();
  EXPECT_EQ(install(), "");
  EXPECT_EQ(test::contentOf(folder.path("arguments")),
            "--disable-internal-agent\n" + folder.path("Resources/install-helper") + "\n" + kName + "\n");
}

TEST_F(SystemHelperInstallationTest, aNamedInstallerRunsIfTheBundleHasNone) {
  addPkexec("exit 0");
  SystemHelperInstallation installation("/usr/bin/pkexec", folder.script("libexec/install-helper", "exit 0"));
  const auto arguments = [&] {
    EXPECT_EQ(installation.install("", kName), PrivilegeInstallResult::success);
    return test::contentOf(folder.path("arguments"));
  };
  EXPECT_NE(arguments().find("\n" + folder.path("libexec/install-helper") + "\n"), std::string::npos);
  addInstaller();
  EXPECT_NE(arguments().find("\n" + folder.path("Resources/install-helper") + "\n"), std::string::npos);
}

TEST_F(SystemHelperInstallationTest, aNamedInstallerThatIsMissingAsksNobody) {
  addPkexec("exit 0");
  SystemHelperInstallation installation("/usr/bin/pkexec", folder.path("libexec/install-helper"));
  EXPECT_EQ(installation.install("", kName), PrivilegeInstallResult::blessError(5));
  EXPECT_NE(::access(folder.path("arguments").c_str(), F_OK), 0);
}

TEST_F(SystemHelperInstallationTest, aRefusedUserIsTold) {
  addInstaller();
  for (const char* status : {"126", "127"}) {
    addPkexec(std::string("exit ") + status);
    EXPECT_EQ(install(), "Get admain authorization fail!");
  }
}

TEST_F(SystemHelperInstallationTest, theInstallersStatusIsTheCodeOfTheFailure) {
  addInstaller();
  addPkexec("exit 6");
  EXPECT_EQ(install(), "blessError: kSMErrorJobNotFound");
  addPkexec("exit 8");
  EXPECT_EQ(install(), "bless unknown error:8");
  addPkexec("exit 1");
  EXPECT_EQ(install(), "bless unknown error:1");
}

TEST_F(SystemHelperInstallationTest, aKilledInstallerIsAnInternalFailure) {
  addInstaller();
  addPkexec("kill -9 $$");
  EXPECT_EQ(install(), "blessError: kSMErrorInternalFailure");
}

TEST_F(SystemHelperInstallationTest, aSystemWithoutPkexecHasNobodyToAsk) {
  addInstaller();
  SystemHelperInstallation installation(folder.path("nowhere/pkexec"));
  EXPECT_EQ(installation.install("kSMDomainSystemLaunchd", kName), PrivilegeInstallResult::authorizationFail);
}

TEST_F(SystemHelperInstallationTest, aBundleWithoutAnInstallerAsksNobody) {
  addPkexec("exit 0");
  EXPECT_EQ(install(), "blessError: kSMErrorToolNotValid");
  EXPECT_NE(::access(folder.path("arguments").c_str(), F_OK), 0);
}

}  // namespace
}  // namespace sorrel
