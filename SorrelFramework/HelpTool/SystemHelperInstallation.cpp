#include "SorrelFramework/HelpTool/SystemHelperInstallation.hpp"

#include <optional>
#include <string_view>

#include "SorrelFramework/Platform/Files/FileManager.hpp"
#include "SorrelFramework/Platform/Machine/ChildProcess.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"

namespace sorrel {
namespace {

/// Folders and suffixes of one layout.
struct Places {
  std::string_view serviceFolder;
  std::string_view serviceSuffix;
  std::string_view programFolder;
};

constexpr Places kMacVolume = {"/Library/LaunchDaemons/", ".plist", "/Library/PrivilegedHelperTools/"};
constexpr Places kLinuxDesktop = {"/usr/share/dbus-1/system-services/", ".service", "/usr/libexec/"};

const Places& places() {
  return Host::current().layout() == Host::Layout::MacVolume ? kMacVolume : kLinuxDesktop;
}

// blessError codes for failures without an exit status of the installer.
constexpr int kInternalFailure = 2;
constexpr int kToolNotValid = 5;

// Exit statuses of pkexec(1).
constexpr int kDialogDismissed = 126;
constexpr int kNotAuthorized = 127;

PrivilegeInstallResult resultOf(const ChildProcess::Ending& ending) {
  if (ending.signal != 0) return PrivilegeInstallResult::blessError(kInternalFailure);
  switch (ending.exitStatus) {
    case 0:
      return PrivilegeInstallResult::success;
    case kDialogDismissed:
    case kNotAuthorized:
      return PrivilegeInstallResult::getAdmainFail;
    default:
      return PrivilegeInstallResult::blessError(ending.exitStatus);
  }
}

}  // namespace

std::string SystemHelperInstallation::serviceFile(const std::string& machServiceName) const {
  return Host::current().locate(std::string(places().serviceFolder) + machServiceName +
                                std::string(places().serviceSuffix));
}

std::string SystemHelperInstallation::program(const std::string& machServiceName) const {
  return Host::current().locate(std::string(places().programFolder) + machServiceName);
}

std::optional<std::string> SystemHelperInstallation::installer() const {
  if (std::optional<std::string> resource = Host::current().resourcePath("install-helper", ""))
    return resource;
  return !installer_.empty() && fileExists(installer_) ? std::optional(installer_) : std::nullopt;
}

PrivilegeInstallResult SystemHelperInstallation::install(const std::string& /*privilegeType*/,
                                                         const std::string& machServiceName) {
  const std::string pkexec = Host::current().tool(pkexec_);
  if (!fileExists(pkexec)) return PrivilegeInstallResult::authorizationFail;
  const std::optional<std::string> program = installer();
  if (!program.has_value()) return PrivilegeInstallResult::blessError(kToolNotValid);
  // The internal agent would ask on the terminal of the process.
  ChildProcess child(pkexec, {"--disable-internal-agent", *program, machServiceName});
  if (child.startError() != 0) return PrivilegeInstallResult::authorizationFail;
  return resultOf(child.run([](std::string_view) { return true; }));
}

}  // namespace sorrel
