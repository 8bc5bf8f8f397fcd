#include "Helper/Installation.hpp"

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

}  // namespace sorrel::helper
