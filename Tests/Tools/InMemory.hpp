#pragma once

#include <unistd.h>

#include <cstdlib>

#include "Tests/Support/ScopedVariable.hpp"

namespace sorrel::test {

/// Temporary folders lie in memory, where that is possible, while it lives: many files are made at once, and
/// files may be as large as they like.
class InMemory {
 private:
  static const char* place() { return ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : std::getenv("TMPDIR"); }
  ScopedVariable folder_{"TMPDIR", place()};
};

}  // namespace sorrel::test
