#pragma once

#include <unistd.h>

#include <cstdlib>

#include "Tests/Support/ScopedVariable.hpp"

namespace sorrel::test {

/// While it lives, temporary folders are in memory where that is possible: many files are made at once, and
/// files may be very large.
class InMemory {
 private:
  static const char* place() { return ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : std::getenv("TMPDIR"); }
  ScopedVariable folder_{"TMPDIR", place()};
};

}  // namespace sorrel::test
