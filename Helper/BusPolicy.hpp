#pragma once

#include "SorrelFramework/HelpTool/HelperWireNames.hpp"

namespace sdbus {
class IConnection;
}

namespace sorrel::helper {

/// Whether the bus refuses to deliver a call with a descriptor to the owner of the service name: tries it
/// over `probe`, another connection. Every descriptor that is delivered has to be closed, and closing it can
/// wait for ever for the process that sent it.
[[nodiscard]] bool refusesDescriptors(sdbus::IConnection& probe, const HelperWireNames& names);

}  // namespace sorrel::helper
