#pragma once

#include <string>

#include "SorrelFramework/HelpTool/PrivilegeInstallResult.hpp"

namespace sorrel {

/// Where the privileged helper lies on this machine, and how it gets there. Any thread.
class HelperInstallation {
 public:
  virtual ~HelperInstallation() = default;

  /// Path of the file that tells the system how to start the helper of this service name.
  [[nodiscard]] virtual std::string serviceFile(const std::string& machServiceName) const = 0;
  /// Path of the helper itself.
  [[nodiscard]] virtual std::string program(const std::string& machServiceName) const = 0;

  /// Installs the helper, over an old one too. May ask the user for an administrator's password and blocks
  /// for as long as the dialog is up. `privilegeType` names the right, see kSMDomainSystemLaunchd.
  [[nodiscard]] virtual PrivilegeInstallResult install(const std::string& privilegeType,
                                                       const std::string& machServiceName) = 0;
};

}  // namespace sorrel
