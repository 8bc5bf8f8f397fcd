#pragma once

namespace sorrel::cli {

/// Ensures that standard input, output and error are open, so that no file of the program's own gets their
/// numbers: output would be written into it. A stream that was closed accepts no output. Call it first in
/// main.
void openStandardStreams();

/// Flushes std::cout; a CommandError with ExitStatus::Failed if any of the output was lost.
void finishOutput();

}  // namespace sorrel::cli
