#include "Helper/Installation.hpp"

#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace sorrel::helper {
namespace {

/// In this order: without its service file nobody starts the helper any more.
constexpr auto kFiles = std::to_array<const char*>({SORREL_HELPER_FILES});

}  // namespace

bool removeInstallation(std::string& text) {
  text.clear();
  for (const char* file : kFiles) {
    if (::unlink(file) == 0 || errno == ENOENT) continue;
    if (text.empty()) text = std::string(file) + ": " + std::strerror(errno);
  }
  return text.empty();
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
