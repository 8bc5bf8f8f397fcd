#include "Helper/GonePaths.hpp"

#include <algorithm>

namespace sorrel::helper {

bool GonePaths::holds(std::string_view path) {
  // Paths with the same beginning follow each other.
  while (!paths_.empty() && !path.starts_with(paths_.back())) paths_.pop_back();
  return std::ranges::any_of(
      paths_, [&](std::string_view gone) { return gone.size() < path.size() && path[gone.size()] == '/'; });
}

}  // namespace sorrel::helper
