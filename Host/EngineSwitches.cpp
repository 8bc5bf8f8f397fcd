#include "Host/EngineSwitches.hpp"

#include <array>

#include "Host/Invocation.hpp"
#include "SorrelFramework/Clean/CleanService.hpp"
#include "SorrelFramework/HelpTool/DBusHelperConnection.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"

namespace sorrel::cli {
namespace {

constexpr std::array kSwitches = {
    EngineSwitch{"CleanService::opensOwnFolders", &CleanService::opensOwnFolders},
    EngineSwitch{"DBusHelperConnection::repliesToLostEvents", &DBusHelperConnection::repliesToLostEvents},
    EngineSwitch{"DuplicateScanService::findsEveryEqualPair", &DuplicateScanService::findsEveryEqualPair},
    EngineSwitch{"DuplicateScanService::ignoresFoldersWithoutHashes",
                 &DuplicateScanService::ignoresFoldersWithoutHashes},
};

}  // namespace

std::span<const EngineSwitch> engineSwitches() { return kSwitches; }

void setEngineSwitches(const GlobalOptions& options) {
  if (options.engineDefaults) return;
  for (const EngineSwitch& engineSwitch : kSwitches) *engineSwitch.value = true;
}

}  // namespace sorrel::cli
