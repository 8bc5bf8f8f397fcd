// Runs a program, and makes the system calls of the processes that it starts fail; reports at its end how
// many of how many failed. usage: FaultyRun CALL WHEN STEP ERROR PROGRAM [ARGUMENT...]. The numbers are those
// of CallFault.

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>

#include "Tests/Support/SystemCallFaults.hpp"

int main(int count, char** arguments) {
  if (count < 6) return EXIT_FAILURE;
  const sorrel::test::CallFault fault{std::atoi(arguments[1]), std::strtoull(arguments[2], nullptr, 10),
                                      std::atoi(arguments[4]), std::strtoull(arguments[3], nullptr, 10)};
  const auto run = sorrel::test::runProgramWithFault(fault, arguments + 5);
  if (!run) {
    std::fputs("no system calls can be watched here\n", stderr);
    return EXIT_FAILURE;
  }
  std::fprintf(stderr, "faults=%llu calls=%llu.\n", static_cast<unsigned long long>(run->faults),
               static_cast<unsigned long long>(run->calls));
  return WIFEXITED(run->status) ? WEXITSTATUS(run->status) : EXIT_FAILURE;
}
