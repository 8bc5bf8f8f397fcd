#pragma once

#include <string_view>

#include "Helper/PathResult.hpp"

namespace sorrel::helper {

/// Moves a system extension into the folder beside its own that switches it off, or back. Nothing else: a
/// move by root to any place would be as good as root's own rights.
///
/// Both folders must be a pair, NAME and "NAME Disabled", of the table of extension folders
/// (Library/Spotlight, Library/PreferencePanes, Library/Internet Plug-Ins) below "/" or below the root of a
/// mounted volume; both names must end as the table says. No link may stand in the way, and every folder on
/// it must belong to root and be writable for nobody else (a sticky one above the volume's root aside). The
/// item must be the one that the sender sees. The folder "NAME Disabled" is made if it is missing. Never
/// replaces anything and never copies: between file systems nothing is moved. The failure is MoveFail.
PathResult movePath(std::string_view source, std::string_view target, const SenderView& seen,
                    const RemovalPolicy& policy);

}  // namespace sorrel::helper
