#include "Host/ProgressLine.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>

#include "Host/SafeText.hpp"

namespace sorrel::cli {
namespace {

constexpr auto kLeastPause = std::chrono::milliseconds(100);
constexpr std::size_t kUsualColumns = 80;

std::size_t terminalColumns() {
  winsize size{};
  if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsualColumns;
  return size.ws_col;
}

// The first `columns` characters. A wide character counts as one here, so the line keeps well clear of the
// edge.
std::string_view firstCharacters(std::string_view text, std::size_t columns) {
  std::size_t at = 0;
  for (; at < text.size(); ++at) {
    const bool begins = (static_cast<unsigned char>(text[at]) & 0xC0U) != 0x80U;
    if (begins && columns-- == 0) break;
  }
  return text.substr(0, at);
}

// Paths of folders end in a slash.
std::string_view lastName(std::string_view path) {
  if (path.ends_with('/')) path.remove_suffix(1);
  return path.substr(path.rfind('/') + 1);
}

}  // namespace

ProgressLine::ProgressLine(bool wanted) : enabled_(wanted && ::isatty(STDERR_FILENO) == 1) {}

ProgressLine::~ProgressLine() { clear(); }

void ProgressLine::item(std::string_view path, std::int64_t size) {
  if (!enabled_) return;
  ++items_;
  bytes_ += std::min(size, INT64_MAX - bytes_);
  if (!path.empty()) path_ = path;
  draw(items_ == 1);
}

void ProgressLine::percent(float fraction) {
  fraction_ = fraction;
  draw(false);
}

void ProgressLine::clear() {
  if (!drawn_) return;
  std::fputs("\r\x1b[K", stderr);
  drawn_ = false;
}

void ProgressLine::draw(bool atOnce) {
  if (!enabled_) return;
  const auto now = std::chrono::steady_clock::now();
  if (drawn_ && !atOnce && now - last_ < kLeastPause) return;
  last_ = now;
  drawn_ = true;
  const int percent = static_cast<int>(std::clamp(fraction_, 0.0F, 1.0F) * 100);
  std::string line = std::to_string(percent) + " %  " + std::to_string(items_);
  line.append(items_ == 1 ? " item, " : " items, ").append(sizeText(bytes_));
  line.append("  ").append(printable(lastName(path_)));
  const std::size_t columns = terminalColumns();
  const std::string shown(firstCharacters(line, columns - columns / 4));
  std::fprintf(stderr, "\r\x1b[K%s", shown.c_str());
  std::fflush(stderr);
}

}  // namespace sorrel::cli
