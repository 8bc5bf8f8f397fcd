#include "Host/QuietHelper.hpp"

#include <memory>
#include <string>

#include "SorrelFramework/HelpTool/DBusHelperConnection.hpp"
#include "SorrelFramework/HelpTool/PrivilegeHelper.hpp"
#include "SorrelFramework/HelpTool/SystemHelperInstallation.hpp"

namespace sorrel::cli {
namespace {

class FixedInstallation : public SystemHelperInstallation {
 public:
  [[nodiscard]] PrivilegeInstallResult install(const std::string& /*privilegeType*/,
                                               const std::string& /*machServiceName*/) override {
    return PrivilegeInstallResult::authorizationFail;
  }
};

}  // namespace

void useHelperWithoutPrompt() {
  PrivilegeHelper::shard().use(std::make_shared<FixedInstallation>(), [](const std::string& machServiceName) {
    return DBusHelperConnection::make(machServiceName);
  });
}

}  // namespace sorrel::cli
