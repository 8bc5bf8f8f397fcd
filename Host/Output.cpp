#include "Host/Output.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <iostream>

#include "Host/CommandError.hpp"

namespace sorrel::cli {

void openStandardStreams() {
  // open(2) returns the lowest free number. Opened for reading, so that writing to a closed output still
  // fails.
  int stream = 0;
  while (stream >= 0 && stream <= STDERR_FILENO) stream = ::open("/dev/null", O_RDONLY);
  if (stream >= 0) ::close(stream);
}

void finishOutput() {
  std::cout.flush();
  if (!std::cout) throw CommandError(ExitStatus::Failed, "the output could not be written");
}

}  // namespace sorrel::cli
