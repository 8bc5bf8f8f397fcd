#pragma once

#include <string_view>

#include "Helper/PathResult.hpp"

namespace sorrel::helper {

/// Moves a system extension into the folder beside its own that disables it, or back. Any other move is
/// refused: a move by root to any path would be as good as root's own permissions.
///
/// Both folders must be a pair, NAME and "NAME Disabled", of the table of extension folders
/// (Library/Spotlight, Library/PreferencePanes, Library/Internet Plug-Ins) below "/" or below the root of a
/// mounted volume; both names must end as the table says. No link may be on the path, and every folder on it
/// must belong to root and be writable for root only (except a sticky one above the volume's root). The item
/// must be the one that the sender saw. The folder "NAME Disabled" is created if it is missing. Never
/// replaces an item and never copies: nothing is moved between file systems. The failure is MoveFail.
PathResult movePath(std::string_view source, std::string_view target, const SenderView& seen,
                    const RemovalPolicy& policy);

}  // namespace sorrel::helper
