#pragma once

#include <string>
#include <variant>
#include <vector>

#include "Host/ExitStatus.hpp"
#include "Host/Invocation.hpp"

namespace sorrel::cli {

/// Reads the words after the program's name. Wrong use is a CommandError; "--help" and "--version" are
/// answered here, with the status to end with.
std::variant<Invocation, ExitStatus> parseCommandLine(const std::vector<std::string>& words);

}  // namespace sorrel::cli
