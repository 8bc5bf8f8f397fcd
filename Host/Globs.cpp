#include "Host/Globs.hpp"

#include <fnmatch.h>

#include <utility>

namespace sorrel::cli {

Globs::Globs(std::vector<std::string> patterns) {
  for (std::string& pattern : patterns) patterns_.push_back({std::move(pattern)});
}

bool Globs::match(const std::string& text) {
  if (text.find('\0') != std::string::npos) return false;
  bool any = false;
  for (Pattern& pattern : patterns_) {
    if (::fnmatch(pattern.text.c_str(), text.c_str(), 0) != 0) continue;
    pattern.isUsed = true;
    any = true;
  }
  return any;
}

std::vector<std::string> Globs::unused() const {
  std::vector<std::string> list;
  for (const Pattern& pattern : patterns_) {
    if (!pattern.isUsed) list.push_back(pattern.text);
  }
  return list;
}

}  // namespace sorrel::cli
