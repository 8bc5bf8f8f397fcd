#pragma once

#include <string>

namespace sorrel::tools {

/// Works on the macOS volume that the process which runs the tool works on, if that told so (see
/// ChildProcess): then no path leads out of it. Call it before anything else. Answers the root of the search
/// for whoever names none: the volume's, else "/".
std::string installToolHost();

}  // namespace sorrel::tools
