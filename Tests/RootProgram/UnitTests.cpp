#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <vector>

#include "SorrelFramework/Platform/Machine/ChildProcess.hpp"
#include "Tests/Helper/HelperServiceKit.hpp"

namespace sorrel::helper {
namespace {

namespace fs = std::filesystem;
using namespace test;

/// What the service manager's unit allows the program.
using Unit = HelperServiceKit;

/// The names of a set of system calls, as defined by the service manager.
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

/// The values of an option of the installed unit, without the "-" that marks optional paths.
std::vector<std::string> listOf(const std::string& option) {
  const std::string unit = test::contentOf("/usr/lib/systemd/system/" + kService + ".service");
  const std::size_t begin = unit.find("\n" + option + "=") + option.size() + 2;
  std::istringstream words(unit.substr(begin, unit.find('\n', begin) - begin));
  std::vector<std::string> paths;
  for (std::string word; words >> word;) paths.push_back(word.substr(word.starts_with('-') ? 1 : 0));
  return paths;
}

/// A program that mounts as the service manager does for the unit, and then runs the given command.
std::string unitsMounts() {
  std::string commands = "mount --make-rprivate /\n";
  const auto bind = [&](const std::string& path) {
    if (fs::exists(path)) commands += "mount --rbind " + path + " " + path + "\n";
  };
  for (const std::string& path : listOf("ReadOnlyPaths")) bind(path);
  for (const std::string& path : listOf("ReadWritePaths")) bind(path);
  for (const std::string& path : listOf("ReadOnlyPaths")) {
    if (fs::exists(path)) commands += "mount -o remount,bind,ro " + path + "\n";
  }
  return "#!/bin/sh\nset -e\n[ -n \"$mounting\" ] || mounting=yes exec unshare --mount \"$0\" \"$@\"\n" +
         commands + "unset mounting\nexec \"$@\"\n";
}

constexpr const char* kProtected = "This item isn’t one that may be changed this way.";

class UnitsMounts : public HelperServiceKit {
 protected:
  void SetUp() override {
    HelperServiceKit::SetUp();
    if (IsSkipped()) return;
    start({});  // installs the unit
    starter_ = folder_.file("as-the-unit", unitsMounts());
    HelperMachine::Setup setup;
    ::chmod(starter_.c_str(), 0755);
    setup.tracer = starter_;
    start(setup);
  }
  /// A file owned by root in that folder.
  static std::string fileIn(const std::string& folder) {
    const std::string file = folder + "/sorrel-test-file";
    std::ofstream(file) << "content";
    return file;
  }
  /// Why the helper did not remove the one item of an event; "" if it removed it.
  std::string refusal(std::int32_t kind, const std::string& path) {
    const Answer answer = machine->ask(kind, {{path, HelperDictionary()}});
    if (answer.dictionary.size() != 1) return answer.flag ? "" : machine->log();
    const HelperDictionary& words = *answer.dictionary.begin()->second.asDictionary();
    return *words.at("DeleteStatus").asNumber() == 0 ? "" : *words.at("DeleteDesc").asText();
  }

  const TemporaryFolder folder_;
  std::string starter_;
};

TEST_F(UnitsMounts, theHelperCanWriteInUsrLocalAndNowhereElseInUsr) {
  machine->ask(kDelete, kNowhere);
  const std::string root = "/proc/" + std::to_string(machine->helper()) + "/root";
  for (const std::string& path : listOf("ReadOnlyPaths")) {
    if (!fs::exists(path)) continue;
    EXPECT_NE(::access((root + path).c_str(), W_OK), 0) << path;
  }
  EXPECT_EQ(::access((root + "/usr/local/lib").c_str(), W_OK), 0);
}

TEST_F(UnitsMounts, whatLiesInUsrLocalIsRemoved) {
  for (const std::int32_t kind : {kDelete, kShred}) {
    const std::string file = fileIn("/usr/local/lib");
    EXPECT_EQ(refusal(kind, file), "");
    EXPECT_FALSE(fs::exists(file));
  }
  const std::string folder = "/usr/local/lib/sorrel-test-folder/below";
  fs::create_directories(folder);
  fileIn(folder);
  EXPECT_EQ(refusal(kDelete, fs::path(folder).parent_path()), "");
  EXPECT_FALSE(fs::exists(fs::path(folder).parent_path()));
}

TEST_F(UnitsMounts, whatLiesElsewhereInUsrIsRefusedWithTheTextOfAProtectedPlace) {
  for (const char* folder : {"/usr/share/fonts", "/usr/libexec", "/etc/polkit-1"}) {
    const std::string file = fileIn(folder);
    for (const std::int32_t kind : {kDelete, kShred}) {
      EXPECT_EQ(refusal(kind, file), kProtected) << file;
    }
    EXPECT_TRUE(fs::exists(file));
    fs::remove(file);
  }
}

TEST_F(UnitsMounts, aSystemFolderBoundElsewhereIsStillASystemFolder) {
  const std::string file = fileIn("/usr/share/fonts");
  const std::string shown = machine->folder().folder("shown");
  if (::mount("/usr/share/fonts", shown.c_str(), "none", MS_BIND, nullptr) != 0)
    GTEST_SKIP() << "needs bind mounts";
  EXPECT_EQ(refusal(kDelete, shown + "/sorrel-test-file"), kProtected);
  EXPECT_TRUE(fs::exists(file));
  ::umount2(shown.c_str(), MNT_DETACH);
  fs::remove(file);
}

TEST_F(UnitsMounts, whatLiesBelowTheMountsOfTheUnitElsewhereIsRemovedAsBefore) {
  const std::string file = rootsFile("folder/file");
  EXPECT_EQ(refusal(kDelete, file), "");
  EXPECT_FALSE(fs::exists(file));
}

TEST_F(UnitsMounts, theOriginsOfBindMountsAreFoundUnderThem) {
  std::string output;
  ChildProcess tests(starter_, {SORREL_BINARY_DIR "/Tests/RemovalTests", "--gtest_filter=Origins.*"});
  const auto ending = tests.run([&](std::string_view piece) {
    output += piece;
    return true;
  });
  EXPECT_EQ(ending.exitStatus, 0) << output;
  EXPECT_NE(output.find("[  PASSED  ]"), std::string::npos);
  EXPECT_EQ(output.find("[  SKIPPED ]"), std::string::npos) << output;
}

}  // namespace
}  // namespace sorrel::helper
