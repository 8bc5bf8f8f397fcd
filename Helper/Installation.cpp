#include "Helper/Installation.hpp"

#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

namespace sorrel::helper {

std::string removalAdvice(const std::string& service) {
  return "The privileged helper goes with its package, or by the command: sudo install-helper --remove " +
         service;
}

std::function<bool()> watchProgram() {
  struct stat running {};
  std::array<char, PATH_MAX> path{};
  const ssize_t size = ::readlink("/proc/self/exe", path.data(), path.size() - 1);
  if (size <= 0 || ::stat("/proc/self/exe", &running) != 0) return [] { return false; };
  return [running, file = std::string(path.data())] {
    struct stat now {};
    const bool isThere = ::stat(file.c_str(), &now) == 0;
    return !isThere || now.st_dev != running.st_dev || now.st_ino != running.st_ino;
  };
}

}  // namespace sorrel::helper
