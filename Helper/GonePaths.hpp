#pragma once

#include <string_view>
#include <vector>

namespace sorrel::helper {

/// Paths that are gone, added in ascending byte order; tells which later paths lay below them.
class GonePaths {
 public:
  void add(std::string_view path) { paths_.push_back(path); }
  /// True if `path`, which sorts after all added ones, lay below one of them.
  [[nodiscard]] bool holds(std::string_view path);

 private:
  std::vector<std::string_view> paths_;
};

}  // namespace sorrel::helper
