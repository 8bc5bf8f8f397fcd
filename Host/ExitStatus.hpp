#pragma once

namespace sorrel::cli {

/// What the program ends with. Scripts rely on the numbers.
enum class ExitStatus : int {
  Done = 0,
  Failed = 1,     ///< a command failed, or something handed to a clean is still there
  WrongUse = 2,   ///< the command line makes no sense
  FatalStop = 3,  ///< a broken catalogue, or another fatal stop of the framework
  Stopped = 130,  ///< Ctrl-C
};

}  // namespace sorrel::cli
