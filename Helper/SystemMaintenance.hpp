#pragma once

#include "Helper/EventRunner.hpp"
#include "Helper/SystemTools.hpp"

namespace sorrel::helper {

/// Flushes the host name caches that run here: systemd-resolved, dnsmasq, nscd. All of them are tried. A
/// machine without such a cache has nothing to flush: that is a success. The code of a failure is OverTime or
/// NoCause.
EventOutcome cleanDNS(SystemTools& tools);

/// Rebuilds the system's index of file names (plocate), and returns when that is done. Without such an index
/// the flag is false and the code NoCause. The indexes of the desktops belong to their users, so root does
/// not touch them.
EventOutcome rebuildFileIndex(SystemTools& tools);

}  // namespace sorrel::helper
