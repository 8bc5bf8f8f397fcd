#pragma once

#include <optional>
#include <string>
#include <utility>

#include "SorrelFramework/HelpTool/HelperInstallation.hpp"

namespace sorrel {

/// The helper in the layout of Host::current(). On the desktop the service file of the system bus,
/// /usr/share/dbus-1/system-services/NAME.service, and /usr/libexec/NAME, both usually installed by a
/// package; on a macOS volume the two paths below /Library.
class SystemHelperInstallation : public HelperInstallation {
 public:
  /// `pkexec` is the path of that program; `installer` is an install-helper for an application that has none
  /// among its resources.
  explicit SystemHelperInstallation(std::string pkexec = "/usr/bin/pkexec", std::string installer = "")
      : pkexec_(std::move(pkexec)), installer_(std::move(installer)) {}

  [[nodiscard]] std::string serviceFile(const std::string& machServiceName) const override;
  [[nodiscard]] std::string program(const std::string& machServiceName) const override;

  /// The resource "install-helper" of the main bundle, or else the installer given to the constructor;
  /// nothing if neither exists.
  [[nodiscard]] std::optional<std::string> installer() const;

  /// Runs the installer as root: `pkexec INSTALLER NAME`. pkexec asks the user through the desktop's dialog,
  /// never on a terminal. Without pkexec the result is authorizationFail; a user who is refused, or who
  /// closes the dialog, gives getAdmainFail; a missing installer blessError(5), a killed one blessError(2),
  /// and any other failure blessError of its exit status.
  [[nodiscard]] PrivilegeInstallResult install(const std::string& privilegeType,
                                               const std::string& machServiceName) override;

 private:
  std::string pkexec_;
  std::string installer_;
};

}  // namespace sorrel
