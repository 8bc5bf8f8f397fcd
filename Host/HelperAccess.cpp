#include "Host/HelperAccess.hpp"

#include <unistd.h>

#include <cerrno>
#include <future>
#include <memory>
#include <utility>

#include "Host/HostSetup.hpp"
#include "Host/TerminalAgent.hpp"
#include "SorrelFramework/HelpTool/DBusHelperConnection.hpp"
#include "SorrelFramework/HelpTool/PrivilegeHelper.hpp"
#include "SorrelFramework/HelpTool/SystemHelperInstallation.hpp"
#include "SorrelFramework/Platform/Files/FileManager.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Queues/MainQueue.hpp"

namespace sorrel::cli {
namespace {

constexpr const char* kPkexec = "/usr/bin/pkexec";

using Announce = std::function<void(const std::string& text)>;

class FixedInstallation : public SystemHelperInstallation {
 public:
  [[nodiscard]] PrivilegeInstallResult install(const std::string& /*privilegeType*/,
                                               const std::string& /*machServiceName*/) override {
    return PrivilegeInstallResult::authorizationFail;
  }
};

/// True for an answer that begins with "y". Read byte by byte: the input after the line belongs to the shell.
bool readYes() {
  std::string line;
  char byte = 0;
  for (;;) {
    const ssize_t count = ::read(STDIN_FILENO, &byte, 1);
    if (count < 0 && errno == EINTR) continue;
    if (count != 1 || byte == '\n') break;
    line += byte;
  }
  return line.starts_with('y') || line.starts_with('Y');
}

class AskingInstallation : public SystemHelperInstallation {
 public:
  explicit AskingInstallation(Announce announce)
      : SystemHelperInstallation(kPkexec, bundledInstaller()), announce_(std::move(announce)) {}

  [[nodiscard]] PrivilegeInstallResult install(const std::string& privilegeType,
                                               const std::string& machServiceName) override {
    // The user is not prompted if the installation is impossible anyway.
    const bool isPossible = installer().has_value() && fileExists(Host::current().tool(kPkexec));
    if (isPossible && !isWanted(machServiceName)) return PrivilegeInstallResult::authorizationFail;
    return SystemHelperInstallation::install(privilegeType, machServiceName);
  }

 private:
  [[nodiscard]] bool isWanted(const std::string& machServiceName) const {
    announce_(
        "sorrel: what you may not remove yourself needs a root service, " + machServiceName +
        ",\nwhich is not installed. It asks for an administrator's leave each time. Install it? [y/N] ");
    if (!readYes()) return false;
    announce_("sorrel: waiting for an administrator's password to install it\n");
    return true;
  }

  Announce announce_;
};

/// Runs `work` on the main queue and returns afterwards.
void runOnMainQueue(const std::function<void()>& work) {
  auto done = std::make_shared<std::promise<void>>();
  auto isDone = done->get_future();
  MainQueue::post([work, done] {
    work();
    done->set_value();
  });
  isDone.wait();
}

Announce onMainQueue(Announce announce) {
  return
      [announce = std::move(announce)](const std::string& text) { runOnMainQueue([&] { announce(text); }); };
}

using AgentSlot = std::unique_ptr<TerminalAgent>;

void startAgent(AgentSlot& slot) {
  if (slot == nullptr) {
    runOnMainQueue(
        [&] { slot = std::make_unique<TerminalAgent>(Host::current().tool(TerminalAgent::kProgram)); });
  }
  slot->waitUntilReady();
}

}  // namespace

std::shared_ptr<void> setUpHelper(bool mayAsk, Announce announce) {
  const Announce tell = onMainQueue(std::move(announce));
  std::shared_ptr<HelperInstallation> installation = std::make_shared<FixedInstallation>();
  if (mayAsk) installation = std::make_shared<AskingInstallation>(tell);
  const auto agent = std::make_shared<AgentSlot>();
  const auto connect = [tell, mayAsk, held = std::weak_ptr(agent)](const std::string& machServiceName) {
    const auto slot = held.lock();
    tell("sorrel: waiting for the privileged helper; the system may ask for an administrator's password\n");
    if (mayAsk && slot != nullptr) startAgent(*slot);
    return DBusHelperConnection::make(machServiceName);
  };
  PrivilegeHelper::shard().use(std::move(installation), connect);
  return agent;
}

}  // namespace sorrel::cli
