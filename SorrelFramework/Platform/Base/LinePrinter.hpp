#pragma once

#include <string_view>

namespace sorrel {

/// Prints `text` and a line feed to the standard output of the application: messages for a developer, such as
/// why a database could not be opened. The framework writes there only through this function. Any thread.
void printLine(std::string_view text);

/// Replaces the printing function; null restores standard output. For applications whose standard output is a
/// document: `sorrel` sends the lines to standard error. Called on the thread that prints. Set it before the
/// first call of the framework.
using LinePrinter = void (*)(std::string_view text);
void setLinePrinter(LinePrinter printer);

}  // namespace sorrel
