#include "Helper/SystemTools.hpp"

#include <fcntl.h>
#include <sdbus-c++/sdbus-c++.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <optional>

namespace sorrel::helper {
namespace {

constexpr std::uint64_t kPatience = 25'000'000;  // microseconds

bool hasOwner(sdbus::IConnection& connection, const char* service) {
  const auto bus = sdbus::createProxy(connection, "org.freedesktop.DBus", "/org/freedesktop/DBus");
  bool hasOwner = false;
  bus->callMethod("NameHasOwner")
      .onInterface("org.freedesktop.DBus")
      .withArguments(std::string(service))
      .storeResultsTo(hasOwner);
  return hasOwner;
}

bool isTimeout(const sdbus::Error& error) {
  return error.getName() == "org.freedesktop.DBus.Error.Timeout" ||
         error.getName() == "org.freedesktop.DBus.Error.NoReply";
}

/// Fields that change when another file replaces a file, or its content is rewritten.
struct Version {
  ino_t inode;
  timespec modified;

  friend bool operator==(const Version& a, const Version& b) {
    return a.inode == b.inode && a.modified.tv_sec == b.modified.tv_sec &&
           a.modified.tv_nsec == b.modified.tv_nsec;
  }
};

std::optional<Version> versionOf(const char* path) {
  struct stat status {};
  if (::lstat(path, &status) != 0) return std::nullopt;
  return Version{status.st_ino, status.st_mtim};
}

/// Standard streams on /dev/null, and signals as in a new process.
class Surroundings {
 public:
  Surroundings() {
    ::posix_spawn_file_actions_init(&actions_);
    for (const int descriptor : {0, 1, 2}) {
      ::posix_spawn_file_actions_addopen(&actions_, descriptor, "/dev/null", O_RDWR, 0);
    }
    sigset_t signals;
    ::posix_spawnattr_init(&attributes_);
    ::sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes_, &signals);
    ::sigfillset(&signals);
    ::posix_spawnattr_setsigdefault(&attributes_, &signals);
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  ~Surroundings() {
    ::posix_spawn_file_actions_destroy(&actions_);
    ::posix_spawnattr_destroy(&attributes_);
  }
  Surroundings(const Surroundings&) = delete;
  Surroundings& operator=(const Surroundings&) = delete;

  /// True if the command ended with exit status 0.
  [[nodiscard]] bool run(const std::array<const char*, 4>& arguments) const {
    std::array<char*, 5> argv{};
    for (std::size_t i = 0; i < arguments.size(); ++i) argv[i] = const_cast<char*>(arguments[i]);
    std::string path = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
    std::array<char*, 2> environment{path.data(), nullptr};
    pid_t child = 0;
    if (::posix_spawn(&child, argv[0], &actions_, &attributes_, argv.data(), environment.data()) != 0) {
      return false;
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
      if (errno != EINTR) return false;
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }

 private:
  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
};

class OwnTools : public SystemTools {
 public:
  Answer call(const BusMethod& method) override try {
    const auto connection = sdbus::createSystemBusConnection();
    if (!hasOwner(*connection, method.service)) return Answer::Absent;
    const auto proxy = sdbus::createProxy(*connection, method.service, method.path);
    proxy->callMethod(method.method).onInterface(method.interface).withTimeout(kPatience);
    return Answer::Done;
  } catch (const sdbus::Error& error) {
    return isTimeout(error) ? Answer::TimedOut : Answer::Failed;
  }

  Answer run(const FixedCommand& command) override {
    const std::optional<Version> before = versionOf(command.purpose);
    if (!before) return Answer::Absent;
    if (!Surroundings().run(command.arguments)) return Answer::Failed;
    if (command.renewsPurpose && versionOf(command.purpose) == before) return Answer::Failed;
    return Answer::Done;
  }
};

}  // namespace

std::unique_ptr<SystemTools> SystemTools::ofThisMachine() { return std::make_unique<OwnTools>(); }

}  // namespace sorrel::helper
