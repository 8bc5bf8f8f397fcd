#pragma once

#include "Helper/EventRunner.hpp"
#include "Helper/SystemTools.hpp"

namespace sorrel::helper {

/// Empties the caches for names of hosts that run here: systemd-resolved, dnsmasq, nscd. All of them are
/// tried. A machine without such a cache has nothing to empty: that is a success. The code of a failure is
/// OverTime or NoCause.
EventOutcome cleanDNS(SystemTools& tools);

/// Builds the system's index of file names (plocate) anew, and comes back when that is done. Where there is
/// no such index the answer is no, with the code NoCause. The indexes of the desktops belong to their users,
/// and root has no business there.
EventOutcome rebuildFileIndex(SystemTools& tools);

}  // namespace sorrel::helper
