#pragma once

namespace sorrel::cli {

/// Makes sure that standard input, output and error are open, so that no file of the program's own gets their
/// numbers: what is printed would go into it. One that was closed takes no output. Call it first of all in
/// main.
void openStandardStreams();

/// Writes out what is left in std::cout; a CommandError with ExitStatus::Failed if any of the output was
/// lost.
void finishOutput();

}  // namespace sorrel::cli
