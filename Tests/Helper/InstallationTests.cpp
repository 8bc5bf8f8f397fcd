#include "Helper/Installation.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <TestPlaces.hpp>

#include <filesystem>

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
    fs::copy(SORREL_HELPER_BUNDLE, bundle,
             fs::copy_options::recursive | fs::copy_options::overwrite_existing);
  }
  static int installed() {
    int count = 0;
    for (const Place& place : kPlaces) count += fs::exists(place.file) ? 1 : 0;
    return count;
  }

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
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {}, {""}, {"org.example.Other"}, {"../" + kService}, {kService, "x"}, {kService + "\n"}, {"-x"}}) {
    EXPECT_EQ(run(installer, arguments), 6);
  }
  EXPECT_EQ(installed(), 0);
}

TEST_F(InstallationTest, anIncompleteBundleInstallsNothing) {
  const std::string unit = bundle + "/helper/unit.service";
  fs::remove(unit);
  EXPECT_EQ(run(installer, {kService}), 5);
  // A link could show root's own files to everybody.
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
  // Stands in for the dialog; what it would run runs.
  const std::string starter = folder.file("pkexec", "#!/bin/sh\nshift\nexec \"$@\"\n");
  ::chmod(starter.c_str(), 0755);
  Host::install(Host::linuxDesktop({"org.sorrel.Sorrel", bundle, {}}));
  SystemHelperInstallation installation(starter);
  EXPECT_TRUE(installation.install("", kService) == PrivilegeInstallResult::success);
  EXPECT_EQ(installed(), 5);
  EXPECT_TRUE(installation.install("", "org.example.Other") == PrivilegeInstallResult::blessError(6));
}

TEST(Installation, theAdviceForItsRemovalNamesTheCommand) {
  EXPECT_EQ(removalAdvice("org.example.Helper"),
            "The privileged helper goes with its package, or by the command: sudo install-helper --remove "
            "org.example.Helper");
}

}  // namespace
}  // namespace sorrel::helper
