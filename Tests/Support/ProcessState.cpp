#include "Tests/Support/ProcessState.hpp"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string>

namespace sorrel::test {

std::size_t openDescriptors() {
  // The listing itself always has one more open.
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

bool leaveDescriptors(unsigned count) {
  int highest = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    highest = std::max(highest, std::stoi(entry.path().filename().string()));
  // Numbers below the highest one may be free too.
  int filling = 0;
  while ((filling = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0 && filling < highest) {
  }
  if (filling > highest) ::close(filling);
  rlimit limit{};
  if (filling < 0 || ::getrlimit(RLIMIT_NOFILE, &limit) != 0) return false;
  limit.rlim_cur = static_cast<rlim_t>(highest) + 1 + count;
  return ::setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

bool hasChildProcesses() {
  siginfo_t info{};
  return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

}  // namespace sorrel::test
