#include <fcntl.h>
#include <sdbus-c++/sdbus-c++.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

#include "Helper/Confinement.hpp"
#include "Helper/HelperConfiguration.hpp"
#include "Helper/HelperLog.hpp"
#include "Helper/HelperService.hpp"
#include "Helper/Installation.hpp"

using namespace sorrel::helper;

namespace {

constexpr const char* kService = SORREL_HELPER_SERVICE;

/// Drops everything through which the parent program could influence this one.
bool leaveEveryInheritance() {
  if (::prctl(PR_SET_DUMPABLE, 0) != 0 || ::clearenv() != 0) return false;
  if (::setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1) != 0) return false;
  ::umask(077);
  const rlimit noCore{0, 0};
  if (::setrlimit(RLIMIT_CORE, &noCore) != 0) return false;
  return ::chdir("/") == 0;
}

/// Leaves standard error open, for the log, and the other two on /dev/null; closes every other descriptor.
bool closeForeignDescriptors() {
  const int nothing = ::open("/dev/null", O_RDWR);
  if (nothing < 0 || ::dup2(nothing, STDIN_FILENO) < 0 || ::dup2(nothing, STDOUT_FILENO) < 0) return false;
  if (::fcntl(STDERR_FILENO, F_GETFD) < 0 && ::dup2(nothing, STDERR_FILENO) < 0) return false;
  return ::close_range(STDERR_FILENO + 1, ~0U, 0) == 0;
}

/// A descriptor that becomes readable when a signal requests the program to end.
int stopSignal() {
  ::signal(SIGPIPE, SIG_IGN);
  sigset_t stops;
  ::sigemptyset(&stops);
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) ::sigaddset(&stops, number);
  if (::sigprocmask(SIG_SETMASK, &stops, nullptr) != 0) return -1;
  return ::signalfd(-1, &stops, SFD_CLOEXEC | SFD_NONBLOCK);
}

std::unique_ptr<sdbus::IConnection> systemBus(HelperLog& log) {
  try {
    return sdbus::createSystemBusConnection();
  } catch (const sdbus::Error& error) {
    log.error("no system bus: " + escapedForLog(error.getMessage()));
    return nullptr;
  }
}

}  // namespace

int main(int count, char**) {
  if (count > 1) return EXIT_FAILURE;  // it takes no arguments
  if (!closeForeignDescriptors()) return EXIT_FAILURE;
  HelperLog log(kService);
  if (!confineProcess()) {
    log.error("the rights that are not needed cannot be given up");
    return EXIT_FAILURE;
  }
  // The bus's address is the only setting that the environment may change; only root sets it.
  std::unique_ptr<sdbus::IConnection> bus = systemBus(log);
  std::shared_ptr<sdbus::IConnection> probe = systemBus(log);
  const int stop = stopSignal();
  if (bus == nullptr || probe == nullptr || stop < 0 || !leaveEveryInheritance()) return EXIT_FAILURE;
  ConfigurationFile file("/etc/" + std::string(kService) + "/helper.conf", log);
  const auto configure = [&file]() -> const HelperConfiguration& { return file.read(); };
  HelperService service(std::move(bus), {kService, SORREL_VERSION, watchProgram(), std::move(probe)},
                        configure, log);
  return service.run(stop) ? EXIT_SUCCESS : EXIT_FAILURE;
}
