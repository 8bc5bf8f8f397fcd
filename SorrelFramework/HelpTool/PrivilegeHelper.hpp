#pragma once

#include <memory>
#include <optional>
#include <string>

#include "SorrelFramework/HelpTool/HelperConnection.hpp"
#include "SorrelFramework/HelpTool/HelperInstallation.hpp"
#include "SorrelFramework/HelpTool/HelperProtocol.hpp"

namespace sorrel {

/// The authorisation to install for the whole system: every caller requests it.
inline const std::string kSMDomainSystemLaunchd = "kSMDomainSystemLaunchd";

/// Access to the privileged helper, which does the work that needs root. Any thread except the main one:
/// calls may block while the system asks for a password. The fields are set by the calling thread and cleared
/// by blocks on the main queue when the helper is lost. A call that was pending then is never answered.
class PrivilegeHelper {
 public:
  /// A helper, or the message that explains why there is none. With a helper the message is empty.
  struct Tool {
    std::shared_ptr<HelperProtocol> helper;
    std::optional<std::string> message;
  };

  /// The shared instance, for this machine's own helper.
  static PrivilegeHelper& shard();

  PrivilegeHelper(std::shared_ptr<HelperInstallation> installation, HelperConnector connector);
  PrivilegeHelper(const PrivilegeHelper&) = delete;
  PrivilegeHelper& operator=(const PrivilegeHelper&) = delete;

  /// The helper of a service name, by convention the main bundle's identifier followed by "Helper". Installs
  /// it first if it is missing, or if the bundle wants it renewed ("ReInstallHelper" in the info dictionary)
  /// and this version of the bundle has not done so yet. The helper is kept for the next caller.
  [[nodiscard]] Tool getHelperTool(const std::string& machServiceName, const std::string& privilegeType);

  /// Installs the helper; returns the content of the PrivilegeInstallResult, "" for success. Drops the
  /// connection in any case, so that the next caller gets the new helper.
  std::string installPrivilege(const std::string& privilegeType, const std::string& machServiceName);

  /// Requests the helper to end. No effect without a helper; the fields stay until the connection reports the
  /// end.
  void closeHelper();

  /// Makes the helper end every event of this process at once; their replies still come. False if there is no
  /// running event.
  bool stopEvents();
  /// Calls that were lost with a helper since this object was created.
  [[nodiscard]] int lostCalls() const;

  /// The fields; null while absent.
  [[nodiscard]] std::shared_ptr<HelperConnection> helpConnect() const;
  [[nodiscard]] std::shared_ptr<HelperProtocol> helpTool() const;

  /// Replaces the installation and the connector and clears the fields. For tests, and for applications that
  /// install by other means. Must not be called while another thread uses the object.
  void use(std::shared_ptr<HelperInstallation> installation, HelperConnector connector);
  /// Restores this machine's own helper.
  void useSystem();

 private:
  struct Fields;

  [[nodiscard]] std::shared_ptr<HelperConnection> getConnect(const std::string& machServiceName);
  [[nodiscard]] bool checkHelper(const std::string& machServiceName) const;

  std::shared_ptr<HelperInstallation> installation_;
  HelperConnector connector_;
  std::shared_ptr<Fields> fields_;  // blocks on the main queue outlive the object
};

}  // namespace sorrel
