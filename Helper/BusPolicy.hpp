#pragma once

#include "Helper/HelperLog.hpp"
#include "SorrelFramework/HelpTool/HelperWireNames.hpp"

namespace sdbus {
class IConnection;
}

namespace sorrel::helper {

/// Tries whether the bus refuses to deliver descriptors to the owner of the service name and to connections
/// of root that have no name, as the helper's have before it takes its name and after it has given it up. The
/// latter is tried with `probe`, a connection without a name that sends to itself. Every descriptor that is
/// delivered has to be closed, and closing it can wait for ever for the process that sent it.
[[nodiscard]] bool refusesDescriptors(sdbus::IConnection& probe, const HelperWireNames& names);

/// The same; logs it if it is not so, or cannot be tried.
[[nodiscard]] bool isGuarded(sdbus::IConnection& probe, const HelperWireNames& names, HelperLog& log);

}  // namespace sorrel::helper
