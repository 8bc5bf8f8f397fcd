#pragma once

#include <string>

namespace sorrel::tools {

/// Selects the macOS volume of the process that runs the tool, if that process passed one (see ChildProcess):
/// then no path leads out of it. Call it before anything else. Returns the default root of a search: the
/// volume's, else "/".
std::string installToolHost();

}  // namespace sorrel::tools
