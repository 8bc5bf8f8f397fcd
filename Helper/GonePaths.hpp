#pragma once

#include <string_view>
#include <vector>

namespace sorrel::helper {

/// Paths that are gone, in ascending byte order as they come; knows what lay below them.
class GonePaths {
 public:
  void add(std::string_view path) { paths_.push_back(path); }
  /// Whether `path`, which sorts after all that were added, lay below one of them.
  [[nodiscard]] bool holds(std::string_view path);

 private:
  std::vector<std::string_view> paths_;
};

}  // namespace sorrel::helper
