#include "Tests/Support/ProcessState.hpp"

#include <sys/wait.h>

#include <filesystem>
#include <iterator>

namespace sorrel::test {

std::size_t openDescriptors() {
  // The listing itself holds one more, every time.
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

bool hasChildProcesses() {
  siginfo_t info{};
  return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

}  // namespace sorrel::test
