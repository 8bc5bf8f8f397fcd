#pragma once

#include "Helper/HelperLog.hpp"
#include "SorrelFramework/HelpTool/HelperWireNames.hpp"

namespace sdbus {
class IConnection;
}

namespace sorrel::helper {

/// Checks that the bus refuses to deliver descriptors to the owner of the service name and to root's
/// connections without a name, such as the helper's before it takes its name and after it has released it.
/// The latter is tested with `probe`, a connection without a name that sends to itself. Every delivered
/// descriptor must be closed, and closing it can block for ever on the process that sent it.
[[nodiscard]] bool refusesDescriptors(sdbus::IConnection& probe, const HelperWireNames& names);

/// The same; logs it if it is not so, or cannot be tried.
[[nodiscard]] bool isGuarded(sdbus::IConnection& probe, const HelperWireNames& names, HelperLog& log);

}  // namespace sorrel::helper
