#pragma once

namespace sorrel::cli {

/// The exit statuses of the program. Scripts rely on the numbers.
enum class ExitStatus : int {
  Done = 0,
  Failed = 1,     ///< a command failed, or an item given to a clean still exists
  WrongUse = 2,   ///< the command line is invalid
  FatalStop = 3,  ///< a broken catalogue, or another fatal stop of the framework
  Stopped = 130,  ///< Ctrl-C
};

}  // namespace sorrel::cli
