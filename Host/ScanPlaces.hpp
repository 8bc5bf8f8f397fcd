#pragma once

#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel::cli {

/// The path of an item without links and "..", beginning with the volume's path as the user gave it; nothing
/// if it can't be reached. After installHost().
std::optional<std::string> straightPath(const std::string& word, std::error_code& error);

/// The same with a volume's links followed as its own system does: below its root. Nothing without an error
/// for a path off the volume.
std::optional<std::string> scannedPath(const std::string& word, std::error_code& error);

/// The paths of a scan that takes PATHs: `words` without links and "..", each place once, and none that lies
/// in another one. A PATH that can't be reached, lies off the volume or is neither a folder nor a file is
/// wrong use. After installHost().
std::vector<URL> scanPlaces(const std::vector<std::string>& words);

/// The folder with the user's files, below the volume's path as the user gave it. If it can't be reached,
/// that is wrong use. After installHost().
URL homePlace();

}  // namespace sorrel::cli
