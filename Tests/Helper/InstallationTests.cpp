#include "Helper/Installation.hpp"

#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <TestPlaces.hpp>

#include <filesystem>
#include <fstream>
#include <memory>
#include <tuple>
#include <vector>

#include "SorrelFramework/HelpTool/SystemHelperInstallation.hpp"
#include "SorrelFramework/Platform/Machine/ChildProcess.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/Helper/HelperKit.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::helper {
namespace {

namespace fs = std::filesystem;
using test::kService;

struct Place {
  std::string file;
  mode_t mode;
};
const std::vector<Place> kPlaces = {{"/usr/libexec/" + kService, 0755},
                                    {"/usr/share/dbus-1/system-services/" + kService + ".service", 0644},
                                    {"/usr/share/dbus-1/system.d/" + kService + ".conf", 0644},
                                    {"/usr/share/polkit-1/actions/" + kService + ".policy", 0644},
                                    {"/usr/lib/systemd/system/" + kService + ".service", 0644}};

int run(const std::string& program, const std::vector<std::string>& arguments) {
  ChildProcess child(program, arguments);
  return child.run([](std::string_view) { return true; }).exitStatus;
}

class InstallationTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!test::whyNoMachine().empty()) GTEST_SKIP() << test::whyNoMachine();
    for (const Place& place : kPlaces) fs::remove(place.file);
    fs::copy(test::kBundle, bundle, fs::copy_options::recursive);
  }
  static int installed() {
    int count = 0;
    for (const Place& place : kPlaces) {
      count += fs::exists(place.file) ? 1 : 0;
      EXPECT_FALSE(fs::is_regular_file(place.file + ".new"));
    }
    return count;
  }
  [[nodiscard]] int install() const { return run(installer, {kService}); }
  [[nodiscard]] int remove() const { return run(installer, {"--remove", kService}); }

  const test::TemporaryFolder folder;
  const std::string bundle = folder.path("bundle");
  const std::string installer = bundle + "/install-helper";
};

TEST_F(InstallationTest, placesEachFileAsRootsOwn) {
  EXPECT_EQ(run(installer, {kService}), 0);
  for (const Place& place : kPlaces) {
    struct stat status {};
    ASSERT_EQ(::lstat(place.file.c_str(), &status), 0) << place.file;
    EXPECT_EQ(status.st_mode, S_IFREG | place.mode) << place.file;
    EXPECT_EQ(status.st_uid, 0U);
    EXPECT_EQ(status.st_gid, 0U);
    EXPECT_FALSE(fs::exists(place.file + ".new"));
  }
}

TEST_F(InstallationTest, replacesAnOlderOneAndFollowsNoLinkInItsPlace) {
  const std::string victim = folder.file("victim", "untouched");
  ASSERT_EQ(::symlink(victim.c_str(), kPlaces[0].file.c_str()), 0);
  EXPECT_EQ(run(installer, {kService}), 0);
  EXPECT_EQ(test::contentOf(victim), "untouched");
  EXPECT_FALSE(fs::is_symlink(kPlaces[0].file));
}

TEST_F(InstallationTest, anyOtherNameIsRefused) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{},
                                             {""},
                                             {"org.example.Other"},
                                             {"../" + kService},
                                             {kService, "x"},
                                             {kService + "\n"},
                                             {"-x"},
                                             {"--remove"},
                                             {"--remove", ""},
                                             {"--remove", "org.example.Other"},
                                             {"--remove " + kService},
                                             {kService, "--remove"}}) {
    EXPECT_EQ(run(installer, arguments), 6);
  }
  EXPECT_EQ(installed(), 0);
}

TEST_F(InstallationTest, anIncompleteBundleInstallsNothing) {
  const std::string unit = bundle + "/helper/unit.service";
  fs::remove(unit);
  EXPECT_EQ(run(installer, {kService}), 5);
  // A link could expose root's own files.
  ASSERT_EQ(::symlink("/etc/shadow", unit.c_str()), 0);
  EXPECT_EQ(run(installer, {kService}), 5);
  EXPECT_EQ(installed(), 0);
}

TEST_F(InstallationTest, aPlainUserInstallsNothing) {
  ::chmod(folder.path().c_str(), 0755);
  EXPECT_EQ(test::inUser(test::kAlice, [this] { return std::to_string(run(installer, {kService})); }), "4");
  EXPECT_EQ(installed(), 0);
}

TEST_F(InstallationTest, whatItInstallsIsWhereTheLibraryLooks) {
  EXPECT_EQ(run(installer, {kService}), 0);
  Host::install(Host::linuxDesktop({}));
  const SystemHelperInstallation installation;
  EXPECT_TRUE(fs::exists(installation.serviceFile(kService)));
  EXPECT_TRUE(fs::exists(installation.program(kService)));
}

TEST_F(InstallationTest, theLibraryInstallsItThroughPkexec) {
  // A stand-in for the dialog; it runs the command.
  const std::string starter = folder.file("pkexec", "#!/bin/sh\nshift\nexec \"$@\"\n");
  ::chmod(starter.c_str(), 0755);
  Host::install(Host::linuxDesktop({"org.sorrel.Sorrel", bundle, {}}));
  SystemHelperInstallation installation(starter);
  EXPECT_TRUE(installation.install("", kService) == PrivilegeInstallResult::success);
  EXPECT_EQ(installed(), 5);
  EXPECT_TRUE(installation.install("", "org.example.Other") == PrivilegeInstallResult::blessError(6));
}

// --- the source ---

TEST_F(InstallationTest, aSourceThatOthersMayWriteIsRefused) {
  const std::string program = bundle + "/helper/sorrel-helper";
  const std::string above = folder.path();
  for (const auto& [path, mode, right] :
       std::vector<std::tuple<std::string, mode_t, mode_t>>{{program, 0775, 0755},
                                                            {program, 0757, 0755},
                                                            {bundle + "/helper/bus.conf", 0664, 0644},
                                                            {bundle + "/helper", 0777, 0755},
                                                            {bundle, 0775, 0755},
                                                            {above, 0757, 0755},
                                                            {above, 02775, 0755}}) {
    ::chmod(path.c_str(), mode);
    EXPECT_EQ(install(), 3) << path << std::oct << mode;
    ::chmod(path.c_str(), right);
  }
  for (const std::string& path : {program, bundle + "/helper", bundle, above}) {
    ASSERT_EQ(::chown(path.c_str(), test::kAlice, 0), 0);
    EXPECT_EQ(install(), 3) << path;
    ASSERT_EQ(::chown(path.c_str(), 0, 0), 0);
  }
  EXPECT_EQ(installed(), 0);
  EXPECT_EQ(install(), 0) << "the same source with nothing wrong";
}

TEST_F(InstallationTest, aStickyFolderAboveTheSourceIsNotRefused) {
  ::chmod(folder.path().c_str(), 01777);
  EXPECT_EQ(install(), 0);
}

TEST_F(InstallationTest, theCallersOwnSourceIsNotRefused) {
  ASSERT_EQ(::chown(bundle.c_str(), test::kAlice, 0), 0);
  const auto installFor = [&](const char* variable, std::uint32_t uid) {
    return run("/usr/bin/env", {variable + std::to_string(uid), installer, kService});
  };
  for (const char* variable : {"PKEXEC_UID=", "SUDO_UID="}) {
    EXPECT_EQ(installFor(variable, test::kBob), 3);
    EXPECT_EQ(installed(), 0);
    EXPECT_EQ(installFor(variable, test::kAlice), 0);
    EXPECT_EQ(remove(), 0);
  }
}

TEST_F(InstallationTest, aLinkForTheFolderOfTheSourceIsRefused) {
  fs::rename(bundle + "/helper", bundle + "/elsewhere");
  fs::create_directory_symlink("elsewhere", bundle + "/helper");
  EXPECT_EQ(install(), 5);
  EXPECT_EQ(installed(), 0);
}

// --- the helper that runs ---

class InstallationAtWork : public InstallationTest {
 protected:
  void SetUp() override {
    InstallationTest::SetUp();
    if (IsSkipped()) return;
    machine = std::make_unique<test::HelperMachine>(test::HelperMachine::Setup());
  }
  [[nodiscard]] pid_t startHelper() const {
    EXPECT_TRUE(machine->ask(0, {{"/nowhere/at/all", HelperDictionary()}}).isThere);
    return machine->helper();
  }
  /// Runs the installer where the system bus is that of the machine.
  [[nodiscard]] int runThere(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"DBUS_SYSTEM_BUS_ADDRESS=" + machine->address(), installer});
    return run("/usr/bin/env", arguments);
  }

  std::unique_ptr<test::HelperMachine> machine;
};

TEST_F(InstallationAtWork, theOldHelperIsStoppedAndTheNextCallStartsTheNewOne) {
  const pid_t old = startHelper();
  ASSERT_GT(old, 0);
  EXPECT_EQ(runThere({kService}), 0);
  EXPECT_LT(machine->helper(), 0);
  EXPECT_FALSE(fs::exists("/proc/" + std::to_string(old)));
  const pid_t next = startHelper();
  EXPECT_GT(next, 0);
  EXPECT_NE(next, old);
}

TEST_F(InstallationAtWork, aHelperThatDoesNotEndIsKilled) {
  const pid_t old = startHelper();
  machine->kill(SIGSTOP);
  EXPECT_EQ(runThere({kService}), 0);
  EXPECT_TRUE(machine->waitUntilHelperIsGone()) << old;
}

TEST_F(InstallationAtWork, removalStopsTheHelper) {
  ASSERT_GT(startHelper(), 0);
  EXPECT_EQ(runThere({"--remove", kService}), 0);
  EXPECT_LT(machine->helper(), 0);
  EXPECT_EQ(installed(), 0);
}

TEST_F(InstallationAtWork, anotherProgramWithTheNameIsNotStopped) {
  const auto connection = sdbus::createSessionBusConnectionWithAddress(machine->address());
  connection->requestName(kService);
  EXPECT_EQ(machine->helper(), ::getpid());
  EXPECT_EQ(runThere({kService}), 0);  // would end this process
}

TEST_F(InstallationTest, aRunningServiceManagerStopsTheUnitBeforeTheNewProgramIsThere) {
  ASSERT_EQ(install(), 0);
  const std::string log = folder.file("log");
  std::ofstream(kPlaces[0].file) << "old";
  const std::string manager = folder.script(
      "systemctl", "printf '%s ' \"$*\" $(head -c 3 " + kPlaces[0].file + ") >>" + log + "\n[ ! -e " +
                       kPlaces[1].file + " ] && echo unknown >>" + log + " || echo known >>" + log);
  const char* const program = "/usr/bin/systemctl";
  ASSERT_EQ(::mount(manager.c_str(), program, "none", MS_BIND, nullptr), 0);
  ASSERT_EQ(::mount("none", "/run", "tmpfs", 0, "mode=0755"), 0);
  fs::create_directories("/run/systemd/system");
  const int status = install();
  const std::string placing = test::contentOf(log);
  std::ofstream(log, std::ios::trunc).close();
  const int removal = remove();
  ASSERT_EQ(::umount2("/run", MNT_DETACH), 0);
  ASSERT_EQ(::umount2(program, MNT_DETACH), 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(placing, "daemon-reload old unknown\nstop -- " + kService +
                         ".service old unknown\ndaemon-reload \x7f"
                         "EL known\n");
  EXPECT_EQ(removal, 0);
  EXPECT_TRUE(
      test::contentOf(log).starts_with("daemon-reload \x7f"
                                       "EL unknown\nstop -- " +
                                       kService + ".service"))
      << test::contentOf(log);
}

// --- failures ---

TEST_F(InstallationTest, aFailureBeforeTheOldOneIsStoppedChangesNothing) {
  ASSERT_EQ(install(), 0);
  std::ofstream(kPlaces[0].file) << "old";
  fs::create_directory(kPlaces[3].file + ".new");
  EXPECT_EQ(install(), 2);
  EXPECT_EQ(installed(), 5);
  EXPECT_EQ(test::contentOf(kPlaces[0].file), "old");
  fs::remove(kPlaces[3].file + ".new");
}

// --- removal ---

TEST_F(InstallationTest, removalTakesEachFileAndLeavesTheConfiguration) {
  ASSERT_EQ(install(), 0);
  const std::string configuration = "/etc/" + kService;
  fs::create_directories(configuration);
  std::ofstream(configuration + "/helper.conf") << "log-paths = no\n";
  EXPECT_EQ(remove(), 0);
  EXPECT_EQ(installed(), 0);
  EXPECT_EQ(test::contentOf(configuration + "/helper.conf"), "log-paths = no\n");
  fs::remove_all(configuration);
  EXPECT_EQ(remove(), 0) << "nothing left is no failure";
}

TEST_F(InstallationTest, removalNeedsNoSource) {
  ASSERT_EQ(install(), 0);
  fs::remove_all(bundle + "/helper");
  ::chmod(bundle.c_str(), 0777);
  EXPECT_EQ(remove(), 0);
  EXPECT_EQ(installed(), 0);
}

TEST_F(InstallationTest, removalGoesOnBehindAFileThatStays) {
  ASSERT_EQ(install(), 0);
  fs::remove(kPlaces[2].file);
  fs::create_directory(kPlaces[2].file);
  EXPECT_EQ(remove(), 2);
  EXPECT_EQ(installed(), 1);
  fs::remove(kPlaces[2].file);
}

TEST_F(InstallationTest, aPlainUserRemovesNothing) {
  ASSERT_EQ(install(), 0);
  ::chmod(folder.path().c_str(), 0755);
  EXPECT_EQ(test::inUser(test::kAlice, [this] { return std::to_string(remove()); }), "4");
  EXPECT_EQ(installed(), 5);
}

TEST(Installation, theAdviceForItsRemovalNamesTheCommand) {
  EXPECT_EQ(removalAdvice("org.example.Helper"),
            "The privileged helper goes with its package, or by the command: sudo install-helper --remove "
            "org.example.Helper");
}

}  // namespace
}  // namespace sorrel::helper
