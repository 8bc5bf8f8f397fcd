#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "Tests/Helper/HelperKit.hpp"

namespace sorrel::test {

inline constexpr std::int32_t kDelete = 0;
inline constexpr std::int32_t kShred = 1;
inline constexpr std::int32_t kMaintenance = 2;
inline constexpr std::int32_t kClose = 3;
inline constexpr auto kNoCause = static_cast<std::int32_t>(HelperEventErrorID::NoCause);
inline constexpr const char* kRefused = "The operation was not authorised.";

/// The command that starts a helper so that its system calls are recorded. Leak detection is off: a process
/// has one tracer at a time.
inline const std::string kTracer = "/usr/bin/strace -f -E ASAN_OPTIONS=detect_leaks=0";

inline const HelperDictionary kNowhere = {{"/nowhere/at/all", HelperDictionary()}};

/// A line of /proc/PID/status, without its name.
inline std::string statusOf(pid_t process, const std::string& name) {
  std::ifstream file("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(name + ":\t")) return line.substr(name.size() + 2);
  }
  return "";
}

/// One machine with a helper, and its callers.
class HelperServiceKit : public testing::Test {
 protected:
  void SetUp() override {
    if (!whyNoMachine().empty()) GTEST_SKIP() << whyNoMachine();
  }
  HelperMachine& start(const HelperMachine::Setup& setup) {
    machine = std::make_unique<HelperMachine>(setup);
    return *machine;
  }
  HelperMachine& startScripted(ScriptedPolkit::Mode mode, const std::string& configuration = "") {
    HelperMachine::Setup setup;
    setup.mode = mode;
    setup.configuration = configuration;
    return start(setup);
  }
  /// A helper, with the connection that it needs.
  std::shared_ptr<HelperProtocol> helper() {
    connections.push_back(machine->connect());
    auto proxy = connections.back()->remoteObjectProxyWithErrorHandler([lost = lost] { ++*lost; });
    EXPECT_NE(proxy, nullptr) << machine->log();
    return proxy;
  }
  std::string rootsFile(const std::string& name) {
    std::string file = machine->folder().file(name, "content");
    ::chmod(file.c_str(), 0600);
    return file;
  }

  std::unique_ptr<HelperMachine> machine;
  std::vector<std::shared_ptr<HelperConnection>> connections;
  std::shared_ptr<std::atomic<int>> lost = std::make_shared<std::atomic<int>>(0);  // proxies outlive the test
};

}  // namespace sorrel::test
