#include "Host/ProgressLine.hpp"

#include <algorithm>

#include "SorrelFramework/Platform/Text/SizeText.hpp"

namespace sorrel::cli {
namespace {

// Paths of folders end in a slash.
std::string_view lastName(std::string_view path) {
  if (path.ends_with('/')) path.remove_suffix(1);
  return path.substr(path.rfind('/') + 1);
}

}  // namespace

ProgressLine::ProgressLine(bool wanted) : line_(wanted, [this] { return text(); }) {}

void ProgressLine::item(std::string_view path, std::int64_t size) {
  if (!line_.isEnabled()) return;
  ++items_;
  bytes_ += std::min(size, INT64_MAX - bytes_);
  if (!path.empty()) path_ = path;
  if (items_ == 1) return line_.draw();
  line_.changed();
}

void ProgressLine::percent(float fraction) {
  fraction_ = fraction;
  line_.changed();
}

std::string ProgressLine::text() const {
  const int percent = static_cast<int>(std::clamp(fraction_, 0.0F, 1.0F) * 100);
  std::string line = std::to_string(percent) + " %  " + std::to_string(items_);
  line.append(items_ == 1 ? " item, " : " items, ").append(sizeText(bytes_));
  return line.append("  ").append(lastName(path_));
}

}  // namespace sorrel::cli
