// The contents of the root program, read from the program and the files that are installed with it.
#include <gtest/gtest.h>
#include <unistd.h>
#include <TestPlaces.hpp>

#include <regex>
#include <set>
#include <string>

#include "SorrelFramework/Platform/Machine/ChildProcess.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel {
namespace {

const std::string kBundle = SORREL_HELPER_BUNDLE "/helper/";

std::string outputOf(const std::string& program, const std::vector<std::string>& arguments) {
  std::string output;
  ChildProcess child(program, arguments);
  EXPECT_EQ(child.startError(), 0) << program;
  child.run([&](std::string_view piece) {
    output += piece;
    return true;
  });
  return output;
}

TEST(RootProgram, linksTheBusAndNothingThatReadsRichFormats) {
  const std::string libraries = outputOf("/usr/bin/objdump", {"-p", kBundle + "sorrel-helper"});
  std::set<std::string> needed;
  const std::regex line("NEEDED +([^.\n]+)");
  for (std::sregex_iterator at(libraries.begin(), libraries.end(), line), end; at != end; ++at) {
    needed.insert((*at)[1]);
  }
  EXPECT_TRUE(needed.contains("libsdbus-c++"));
  for (const std::string& name : needed) {
    const bool isExpected = name == "libsdbus-c++" || name == "libstdc++" || name == "libgcc_s" ||
                            name == "libm" || name == "libc" || name == "ld-linux-x86-64" ||
                            name == "ld-linux-aarch64" || name == "libasan" || name == "libubsan" ||
                            name == "libtsan";
    EXPECT_TRUE(isExpected) << name;
  }
}

TEST(RootProgram, holdsNoCodeOfRichFormats) {
  const std::string symbols = outputOf("/usr/bin/nm", {"-C", kBundle + "sorrel-helper"});
  EXPECT_NE(symbols.find("sorrel::helper::runEvent"), std::string::npos);
  for (const char* foreign : {"PropertyList", "sorrel::URL", "sqlite3_", "g_main_", "plist_", "ucol_",
                              "popen", " system@", "FileManager", "sorrel::Image"}) {
    EXPECT_EQ(symbols.find(foreign), std::string::npos) << foreign;
  }
}

TEST(RootProgram, itsCodeAndItsTablesCannotBeWrittenAndLieAnywhere) {
  const std::string program = outputOf("/usr/bin/readelf", {"-hldW", kBundle + "sorrel-helper"});
  EXPECT_TRUE(std::regex_search(program, std::regex("Type: +DYN"))) << program;
  EXPECT_TRUE(std::regex_search(program, std::regex("FLAGS_1\\).*\\bNOW\\b.*\\bPIE\\b"))) << program;
  EXPECT_TRUE(std::regex_search(program, std::regex("GNU_RELRO +0x"))) << program;
  EXPECT_TRUE(std::regex_search(program, std::regex("GNU_STACK( +0x[0-9a-f]+)+ +RW +0x"))) << program;
}

TEST(RootProgram, itsFunctionsCheckTheirBounds) {
  const std::string symbols = outputOf("/usr/bin/readelf", {"-W", "--dyn-syms", kBundle + "sorrel-helper"});
  EXPECT_NE(symbols.find(" __stack_chk_fail@"), std::string::npos);
  if (symbols.find("__asan_") != std::string::npos || symbols.find("__tsan_") != std::string::npos) {
    GTEST_SKIP() << "a checker takes the place of the other two";
  }
  EXPECT_NE(symbols.find(" __syslog_chk@"), std::string::npos) << "_FORTIFY_SOURCE";
  EXPECT_NE(symbols.find("__glibcxx_assert_fail"), std::string::npos) << "_GLIBCXX_ASSERTIONS";
}

TEST(RootProgram, itsUnitIsHardened) {
  const std::string verdict = outputOf("/usr/bin/systemd-analyze",
                                       {"security", "--offline=yes", "--no-pager", kBundle + "unit.service"});
  std::smatch found;
  ASSERT_TRUE(std::regex_search(verdict, found, std::regex("Overall exposure level[^:]*: ([0-9.]+)")))
      << verdict;
  EXPECT_LE(std::stod(found[1]), 2.5);
}

TEST(RootProgram, itsUnitShowsPathsAsTheCallerSeesThem) {
  const std::string unit = test::contentOf(kBundle + "unit.service");
  for (const char* option :
       {"ProtectHome=", "PrivateTmp=", "PrivateDevices=", "ProtectSystem=", "ProtectProc=", "ProcSubset=",
        "InaccessiblePaths=", "ProtectKernelModules=", "ProtectKernelTunables=", "ProtectControlGroups=",
        "RootDirectory=", "TemporaryFileSystem=", "BindPaths=", "BindReadOnlyPaths="}) {
    EXPECT_EQ(unit.find(std::string("\n") + option), std::string::npos) << option;
  }
}

TEST(RootProgram, itsUnitCanWriteNowhereInTheSystemsOwnFolders) {
  const std::string unit = test::contentOf(kBundle + "unit.service");
  for (const char* line :
       {"ReadOnlyPaths=-/usr -/etc -/boot -/efi", "ReadWritePaths=-/usr/local", "PrivateMounts=yes",
        "DevicePolicy=closed", "IPAddressDeny=any", "ProtectClock=yes", "ProtectHostname=yes"}) {
    EXPECT_NE(unit.find(std::string("\n") + line + "\n"), std::string::npos) << line;
  }
}

TEST(RootProgram, onlyAnAdministratorAtTheMachineIsEverAsked) {
  const std::string actions = test::contentOf(kBundle + "actions.policy");
  const auto count = [&](const std::string& text) {
    int number = 0;
    for (std::size_t at = 0; (at = actions.find(text, at)) != std::string::npos; at += text.size()) ++number;
    return number;
  };
  EXPECT_EQ(count("<action id="), 4);
  EXPECT_EQ(count("<allow_any>no</allow_any>"), 4);
  EXPECT_EQ(count("<allow_inactive>no</allow_inactive>"), 4);
  EXPECT_EQ(count("<allow_active>auth_admin</allow_active>"), 2);
  EXPECT_EQ(count("<allow_active>auth_admin_keep</allow_active>"), 2);
  for (const char* kept : {"delete", "maintenance"}) {
    const std::size_t action = actions.find(std::string(".") + kept + "\"");
    ASSERT_NE(action, std::string::npos);
    EXPECT_LT(actions.find("auth_admin_keep", action), actions.find("</action>", action)) << kept;
  }
}

}  // namespace
}  // namespace sorrel
