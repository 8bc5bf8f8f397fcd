#pragma once

#include <string>

#include "SorrelFramework/HelpTool/PrivilegeInstallResult.hpp"

namespace sorrel {

/// The location of the privileged helper on this machine, and its installation. Any thread.
class HelperInstallation {
 public:
  virtual ~HelperInstallation() = default;

  /// Path of the file that defines for the system how to start the helper of this service name.
  [[nodiscard]] virtual std::string serviceFile(const std::string& machServiceName) const = 0;
  /// Path of the helper itself.
  [[nodiscard]] virtual std::string program(const std::string& machServiceName) const = 0;

  /// Installs the helper, over an old one too. May ask the user for an administrator's password and blocks as
  /// long as the dialog is open. `privilegeType` names the authorisation, see kSMDomainSystemLaunchd.
  [[nodiscard]] virtual PrivilegeInstallResult install(const std::string& privilegeType,
                                                       const std::string& machServiceName) = 0;
};

}  // namespace sorrel
