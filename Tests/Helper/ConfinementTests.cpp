#include "Helper/Confinement.hpp"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>

#include "Tests/Helper/HelperServiceKit.hpp"
#include "Tests/Support/ForkedChild.hpp"

namespace sorrel::helper {
namespace {

using namespace test;

/// CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH and CAP_FOWNER.
const std::string kThree = "000000000000000e";
const std::string kNone = "0000000000000000";

std::string openFilesOf(pid_t process) {
  std::ifstream limits("/proc/" + std::to_string(process) + "/limits");
  for (std::string line; std::getline(limits, line);) {
    if (line.starts_with("Max open files")) return line;
  }
  return "";
}

class Confinement : public HelperServiceKit {
 protected:
  /// Starts the helper like a bus without a service manager does, and waits until it works.
  pid_t startedHelper() {
    start({});
    machine->ask(kDelete, kNowhere);
    return machine->helper();
  }
};

TEST_F(Confinement, theRunningProgramHasThreeCapabilitiesWithoutAnyUnit) {
  if (statusOf(::getpid(), "CapBnd") == kThree) GTEST_SKIP() << "this process has no more itself";
  const pid_t process = startedHelper();
  ASSERT_GT(process, 0) << machine->log();
  for (const char* set : {"CapPrm", "CapEff", "CapBnd"}) EXPECT_EQ(statusOf(process, set), kThree) << set;
  for (const char* set : {"CapInh", "CapAmb"}) EXPECT_EQ(statusOf(process, set), kNone) << set;
}

TEST_F(Confinement, theRunningProgramGainsNoPrivilegesByStartingOthers) {
  EXPECT_EQ(statusOf(startedHelper(), "NoNewPrivs"), "1") << machine->log();
}

TEST_F(Confinement, theRunningProgramOpensAsManyFilesAsItsUnitAllows) {
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  const std::string number = std::to_string(std::min<rlim_t>(limit.rlim_max, kMostDescriptors));
  const std::string line = openFilesOf(startedHelper());
  const std::size_t soft = line.find(" " + number + " ");
  ASSERT_NE(soft, std::string::npos) << line;
  EXPECT_NE(line.find(" " + number + " ", soft + number.size() + 1), std::string::npos) << line;
}

TEST_F(Confinement, aLowerLimitOfDescriptorsStays) {
  const std::string told = inChild([]() -> std::string {
    const rlimit low{50, 60};
    if (::setrlimit(RLIMIT_NOFILE, &low) != 0 || !confineProcess()) return "failed";
    rlimit now{};
    ::getrlimit(RLIMIT_NOFILE, &now);
    return std::to_string(now.rlim_cur) + " " + std::to_string(now.rlim_max);
  });
  EXPECT_EQ(told, "60 60");
}

TEST_F(Confinement, aProcessThatIsConfinedAlreadyMayBeConfinedAgain) {
  EXPECT_EQ(inChild([] { return std::string(confineProcess() && confineProcess() ? "twice" : "not"); }),
            "twice");
}

TEST_F(Confinement, itFailsWhereTheBoundingSetCannotBeReduced) {
  const std::string told = inChild([]() -> std::string {
    // Without CAP_SETPCAP no capability can be dropped from the bounding set.
    if (::prctl(PR_CAPBSET_READ, 0) != 1) return "failed";
    if (::setresuid(kAlice, kAlice, kAlice) != 0) return "no other user";
    return confineProcess() ? "confined" : "failed";
  });
  EXPECT_EQ(told, "failed");
}

TEST_F(Confinement, itStillRemovesWhatOnlyRootReaches) {
  startedHelper();
  const std::string file = rootsFile("closed/file");
  const std::string folder = machine->folder().path("closed");
  ASSERT_EQ(::chmod(folder.c_str(), 0), 0);
  EXPECT_TRUE(machine->ask(kDelete, {{file, HelperDictionary{{"0", 0}}}}).flag) << machine->log();
  EXPECT_NE(::access(file.c_str(), F_OK), 0);
  ::chmod(folder.c_str(), 0755);
}

}  // namespace
}  // namespace sorrel::helper
