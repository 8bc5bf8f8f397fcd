#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>
#include <set>
#include <sstream>

#include "SorrelFramework/Platform/Machine/ChildProcess.hpp"
#include "Tests/Helper/HelperServiceKit.hpp"

namespace sorrel::helper {
namespace {

namespace fs = std::filesystem;
using namespace test;

/// What the service manager's unit allows the program.
using Unit = HelperServiceKit;

/// The names of a set of system calls, as the service manager knows it.
std::set<std::string> callsOf(const std::string& set) {
  std::string output;
  ChildProcess analyze("/usr/bin/systemd-analyze", {"syscall-filter", "--no-pager", set});
  analyze.run([&](std::string_view piece) {
    output += piece;
    return true;
  });
  std::set<std::string> calls;
  std::istringstream lines(output);
  for (std::string word; lines >> word;) {
    if (word == "#") std::getline(lines, word);
    if (word.starts_with('@') && word != set) calls.merge(callsOf(word));
    calls.insert(word);
  }
  return calls;
}

TEST_F(Unit, itMakesNoSystemCallThatItsUnitForbids) {
  const std::string trace = "/mnt/trace";
  fs::remove(trace);
  HelperMachine::Setup setup;
  setup.tracer = kTracer + " -qq -e signal=none -o " + trace;
  start(setup);
  const std::string folder = machine->folder().folder("folder/below");
  for (const std::int32_t kind : {kDelete, kShred}) {
    const std::string file = rootsFile("folder/below/file");
    EXPECT_TRUE(machine->ask(kind, {{file, HelperDictionary()}}).flag) << machine->log();
    EXPECT_FALSE(fs::exists(file));
  }
  EXPECT_TRUE(machine->ask(kDelete, {{folder, HelperDictionary()}}).flag) << machine->log();
  machine->kill(SIGTERM);
  ASSERT_TRUE(machine->waitUntilHelperIsGone());
  std::set<std::string> allowed = callsOf("@system-service");
  EXPECT_GT(allowed.size(), 200U);
  for (const char* set : {"@mount", "@swap", "@reboot", "@module", "@raw-io", "@debug", "@keyring"}) {
    for (const std::string& call : callsOf(set)) allowed.erase(call);
  }
  std::istringstream lines(test::contentOf(trace));
  std::set<std::string> made;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t name = line.find_first_not_of("0123456789 ");
    const std::size_t open = line.find('(', name);
    if (open != std::string::npos && line[name] != '<' && line[name] != '+')
      made.insert(line.substr(name, open - name));
  }
  EXPECT_TRUE(made.contains("unlinkat"));
  for (const std::string& call : made) EXPECT_TRUE(allowed.contains(call)) << call;
}

TEST_F(Unit, theCapabilitiesOfItsUnitAreEnough) {
  HelperMachine::Setup setup;
  setup.tracer =
      "/usr/bin/setpriv --no-new-privs --inh-caps=-all"
      " --bounding-set=-all,+dac_override,+dac_read_search,+fowner";
  start(setup);
  for (const std::int32_t kind : {kDelete, kShred}) {
    const std::string file = rootsFile("closed/file");
    const std::string folder = machine->folder().path("closed");
    ::chmod(folder.c_str(), 0);
    const Answer answer = machine->ask(kind, {{file, HelperDictionary()}});
    EXPECT_TRUE(answer.flag) << machine->log();
    EXPECT_FALSE(fs::exists(file));
    ::chmod(folder.c_str(), 0755);
  }
  EXPECT_EQ(statusOf(machine->helper(), "CapEff"), "000000000000000e");
  EXPECT_EQ(statusOf(machine->helper(), "NoNewPrivs"), "1");
}

}  // namespace
}  // namespace sorrel::helper
