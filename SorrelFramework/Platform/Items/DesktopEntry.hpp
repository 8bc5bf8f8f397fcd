#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace sorrel {

/// True for the name of a file that may be a desktop entry: it ends in ".desktop".
[[nodiscard]] bool isDesktopEntryName(std::string_view name);

/// The `Name` of the group [Desktop Entry], in the language of the process (LANGUAGE, LC_ALL, LC_MESSAGES,
/// LANG), by the desktop entry rules of freedesktop.org. Always valid UTF-8 and not empty. Nothing for a
/// link, for an item that is not a regular file of at most 64 KiB, and for a file that cannot be read as a
/// key file. Any thread.
[[nodiscard]] std::optional<std::string> desktopEntryName(const std::string& path);

}  // namespace sorrel
