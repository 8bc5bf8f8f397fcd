// `sorrel clean` with the real root program.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string>

#include "Tests/Helper/HelperServiceKit.hpp"
#include "Tests/Support/MainLoop.hpp"

namespace sorrel::helper {
namespace {

namespace fs = std::filesystem;
using namespace test;

/// A volume of Alice's, with five files of root's in her trash, and a helper whose worker hangs at the third.
class SorrelAtWork : public HelperServiceKit {
 protected:
  void SetUp() override {
    HelperServiceKit::SetUp();
    if (IsSkipped()) return;
    HelperMachine::Setup setup;
    setup.tracer = kTracer + " -o /dev/null -e trace=unlinkat -e inject=unlinkat:signal=SIGSTOP:when=3";
    start(setup);
    machine->folder().file("volume/Library/LaunchDaemons/" + kService + ".plist");
    machine->folder().file("volume/Library/PrivilegedHelperTools/" + kService);
    for (int i = 0; i < 5; ++i) rootsFile(trash() + std::to_string(i));
    for (const char* folder : {"volume", "volume/Users", "volume/Library", "volume/Library/LaunchDaemons",
                               "volume/Library/PrivilegedHelperTools"}) {
      ::chmod(machine->folder().path(folder).c_str(), 0755);
    }
    for (const char* folder : {"volume/Users/alice", "volume/Users/alice/.Trash"}) {
      ASSERT_EQ(::chown(machine->folder().path(folder).c_str(), kAlice, kAlice), 0);
    }
    // Otherwise she could remove them herself.
    ASSERT_EQ(::chown(machine->folder().path("volume/Users/alice/.Trash").c_str(), 0, 0), 0);
  }
  static std::string trash() { return "volume/Users/alice/.Trash/"; }
  [[nodiscard]] bool exists(int number) const {
    return fs::exists(machine->folder().path(trash() + std::to_string(number)));
  }
  /// Cleans the trash as Alice; the output goes to the files "out" and "err".
  pid_t clean() {
    const std::string address = "DBUS_SYSTEM_BUS_ADDRESS=" + machine->address();
    const std::string volume = machine->folder().path("volume");
    const std::string out = machine->folder().file("out");
    const std::string err = machine->folder().file("err");
    const pid_t child = ::fork();
    if (child != 0) return child;
    ::dup2(::open("/dev/null", O_RDONLY), STDIN_FILENO);
    ::dup2(::open(out.c_str(), O_WRONLY), STDOUT_FILENO);
    ::dup2(::open(err.c_str(), O_WRONLY), STDERR_FILENO);
    ::setgroups(0, nullptr);
    if (::setresgid(kAlice, kAlice, kAlice) != 0 || ::setresuid(kAlice, kAlice, kAlice) != 0) ::_exit(99);
    const std::array<const char*, 3> environment = {address.c_str(), "HOME=/nonexistent", nullptr};
    ::execle(SORREL_PROGRAM, "sorrel", "--volume", volume.c_str(), "clean", "trash", "--all", "--yes",
             nullptr, environment.data());
    ::_exit(98);
  }
  /// Its exit status when it has ended; the listed files are exactly those that are gone.
  int endOf(pid_t child) {
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    const std::string out = contentOf(machine->folder().path("out"));
    const std::string removed = out.substr(0, out.find("Not removed:"));
    for (int i = 0; i < 5; ++i) {
      const std::string line = machine->folder().path(trash() + std::to_string(i)) + "\n";
      EXPECT_NE(exists(i), removed.find(line) != std::string::npos) << i << out;
    }
    EXPECT_FALSE(exists(0));
    EXPECT_TRUE(exists(4));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  [[nodiscard]] std::string errors() const { return contentOf(machine->folder().path("err")); }
};

TEST_F(SorrelAtWork, anInterruptStopsTheHelperAndReportsWhatIsGone) {
  const pid_t child = clean();
  ASSERT_TRUE(runMainLoopUntil([this] { return !exists(1); })) << errors() << machine->log();
  ::kill(child, SIGINT);
  EXPECT_EQ(endOf(child), 130);
  EXPECT_EQ(errors(), "sorrel: stopped. What is listed as removed is gone, the rest was left as it is.\n");
  EXPECT_TRUE(machine->waitForLog("killed"));
  EXPECT_TRUE(exists(3)) << "root goes on";
}

TEST_F(SorrelAtWork, theEndOfTheHelperIsReportedWithWhatIsGone) {
  const pid_t child = clean();
  ASSERT_TRUE(runMainLoopUntil([this] { return !exists(1); })) << errors() << machine->log();
  machine->kill(SIGKILL);
  EXPECT_EQ(endOf(child), 1);
  EXPECT_EQ(
      errors(),
      "sorrel: the privileged helper ended before it had finished. What is listed as removed is gone.\n");
}

TEST_F(SorrelAtWork, aHelperThatCannotBeStartedIsReportedApartFromNone) {
  const auto statusOf = [](pid_t child) {
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  };
  fs::copy_file("/usr/bin/false", "/usr/libexec/" + kService, fs::copy_options::overwrite_existing);
  EXPECT_EQ(statusOf(clean()), 1);
  EXPECT_EQ(errors(), "sorrel: the privileged helper cannot be started\n");
  fs::remove(machine->folder().path("volume/Library/PrivilegedHelperTools/" + kService));
  EXPECT_EQ(statusOf(clean()), 1);
  EXPECT_EQ(errors(), "sorrel: there is no privileged helper to remove what you may not remove yourself\n");
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(exists(i));
}

}  // namespace
}  // namespace sorrel::helper
