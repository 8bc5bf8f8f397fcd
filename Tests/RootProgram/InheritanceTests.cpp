// What the root program inherits from its parent process, and its workers from it: nothing that could
// influence them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "Helper/Supervisor.hpp"
#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "Tests/Helper/HelperServiceKit.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::helper {
namespace {

namespace fs = std::filesystem;
using namespace test;

class Inheritance : public HelperServiceKit {
 protected:
  /// Starts the helper through a shell that runs `commands` before it, and waits until it works.
  pid_t startAfter(const std::string& commands) {
    const std::string script = starter.file("starter", "#!/bin/sh\n" + commands + "\nexec \"$@\"\n");
    ::chmod(script.c_str(), 0755);
    HelperMachine::Setup setup;
    setup.tracer = script;
    start(setup);
    machine->ask(kDelete, kNowhere);
    return machine->helper();
  }

  const TemporaryFolder starter;
};

TEST_F(Inheritance, noVariableOfTheEnvironmentCounts) {
  const std::string home = starter.file("home/file", "x").substr(0, starter.path("home").size());
  // A policy protects the home that the environment names.
  startAfter("export HOME=" + home + " XDG_DATA_HOME=" + home);
  EXPECT_TRUE(machine->ask(kDelete, {{home, HelperDictionary{{"0", 0}}}}).flag) << machine->log();
  EXPECT_FALSE(fs::exists(home));
}

TEST_F(Inheritance, noDescriptorStaysOpen) {
  const std::string file = starter.file("foreign", "x");
  const pid_t process = startAfter("exec 7<" + file + " 0<" + file + " 1>>" + file + " 9<" + file);
  for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(process) + "/fd")) {
    std::error_code error;
    EXPECT_NE(fs::read_symlink(entry.path(), error), file) << entry.path();
  }
}

TEST_F(Inheritance, closedStandardStreamsAreNotReplacedByTheBus) {
  const pid_t process = startAfter("exec 0<&- 1>&- 2>&-");
  EXPECT_EQ(fs::read_symlink("/proc/" + std::to_string(process) + "/fd/2"), "/dev/null");
}

TEST_F(Inheritance, theFolderTheMaskAndTheCoreLimitAreItsOwn) {
  const pid_t process = startAfter("cd " + starter.path() + "; umask 0; ulimit -c unlimited");
  EXPECT_EQ(fs::read_symlink("/proc/" + std::to_string(process) + "/cwd"), "/");
  EXPECT_EQ(statusOf(process, "Umask"), "0077");
  std::ifstream limits("/proc/" + std::to_string(process) + "/limits");
  std::string core;
  for (std::string line; std::getline(limits, line);) {
    if (line.starts_with("Max core file size")) core = line;
  }
  EXPECT_NE(core.find(" 0 "), std::string::npos) << core;
  EXPECT_EQ(core.find("unlimited"), std::string::npos) << core;
}

/// Whether root may access a process without the capability to trace; the process has no further capabilities
/// itself.
std::string opennessOf(pid_t process) {
  return inChild([process]() -> std::string {
    if (::prctl(PR_CAPBSET_DROP, CAP_SYS_PTRACE) != 0) return "skip";
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2]{};
    if (::syscall(SYS_capget, &header, data) != 0) return "skip";
    for (auto* set : {&data[0].effective, &data[0].permitted, &data[0].inheritable}) {
      *set &= ~(1U << CAP_SYS_PTRACE);
    }
    if (::syscall(SYS_capset, &header, data) != 0) return "skip";
    char program[2];
    const std::string link = "/proc/" + std::to_string(process) + "/exe";
    return ::readlink(link.c_str(), program, sizeof program) > 0 ? "open" : "closed";
  });
}

TEST_F(Inheritance, itIsClosedToOthersOfItsUser) {
  HelperMachine::Setup setup;
  setup.tracer = "/usr/bin/setpriv --bounding-set=-sys_ptrace --inh-caps=-sys_ptrace";
  start(setup);
  machine->ask(kDelete, kNowhere);
  const std::string told = opennessOf(machine->helper());
  if (told == "skip") GTEST_SKIP() << "no right to give up rights";
  EXPECT_EQ(told, "closed");
}

TEST_F(Inheritance, aWorkerEndsWithItsSupervisor) {
  const std::string told = inChild([]() -> std::string {
    const std::string bytes = encodeHelperMessage({HelperMessage::Kind::Event, kNowhere, {}}).value();
    const HelperConfiguration configuration;
    const EventJob job{EventForm{HelperHanldeEventID::Delete, {}, 1}, 0,
                       MessageView::of(bytes, HelperMessage::Kind::Event).value(), configuration};
    // Never destroyed: that would kill the worker.
    auto& supervisor = *new Supervisor([](const EventJob&, ResultSink& sink) -> EventOutcome {
      sink.result(0, HelperEventErrorID::Success, "");
      for (;;) ::pause();
    });
    if (!supervisor.start(1, job, [](const Supervisor::Ending&) {})) return "not started";
    pollfd result{supervisor.descriptors().front(), POLLIN, 0};
    if (::poll(&result, 1, 10'000) != 1) return "no result";
    // Ends here without notifying its worker.
    return std::to_string(supervisor.process(1));
  });
  ASSERT_EQ(told.find_first_not_of("0123456789"), std::string::npos) << told;
  const pid_t process = std::stoi(told);
  const FileDescriptor end(static_cast<int>(::syscall(SYS_pidfd_open, process, 0)));
  if (!end.isOpen()) return;  // gone already
  pollfd ended{end.get(), POLLIN, 0};
  EXPECT_EQ(::poll(&ended, 1, 10'000), 1) << "the worker goes on";
  ::syscall(SYS_pidfd_send_signal, end.get(), SIGKILL, nullptr, 0);
}

}  // namespace
}  // namespace sorrel::helper
