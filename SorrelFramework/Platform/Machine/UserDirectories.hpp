#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace sorrel {

/// The folder that `variable` ("XDG_DOCUMENTS_DIR") names in the text of a user-dirs.dirs file
/// (xdg-user-dirs): lines VARIABLE="$HOME/folder" or VARIABLE="/folder", a backslash escapes the next
/// character, the last line of a name counts. The result is absolute, without a trailing slash; "$HOME/" on
/// its own is the home. Every other line is ignored; nothing if no line remains.
[[nodiscard]] std::optional<std::string> userDirectoryIn(std::string_view text, std::string_view variable,
                                                         std::string_view home);

/// The same for the file of that name in `configFolder`; nothing if it can't be read.
[[nodiscard]] std::optional<std::string> userDirectory(const std::string& configFolder,
                                                       std::string_view variable, std::string_view home);

}  // namespace sorrel
