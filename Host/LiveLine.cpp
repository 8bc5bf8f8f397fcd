#include "Host/LiveLine.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <string_view>
#include <utility>

#include "Host/SafeText.hpp"
#include "SorrelFramework/Platform/Queues/MainQueue.hpp"

namespace sorrel::cli {
namespace {

constexpr auto kLeastPause = std::chrono::milliseconds(100);
constexpr auto kTick = std::chrono::milliseconds(500);
constexpr std::size_t kUsualColumns = 80;

std::size_t terminalColumns() {
  winsize size{};
  if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsualColumns;
  return size.ws_col;
}

// The first `columns` characters. A wide character counts as one here, so the line stays well clear of the
// edge.
std::string_view firstCharacters(std::string_view text, std::size_t columns) {
  std::size_t at = 0;
  for (; at < text.size(); ++at) {
    const bool begins = (static_cast<unsigned char>(text[at]) & 0xC0U) != 0x80U;
    if (begins && columns-- == 0) break;
  }
  return text.substr(0, at);
}

}  // namespace

LiveLine::LiveLine(bool wanted, Text text)
    : enabled_(wanted && ::isatty(STDERR_FILENO) == 1), text_(std::move(text)) {}

LiveLine::~LiveLine() { end(); }

void LiveLine::begin() {
  if (!enabled_) return;
  began_ = Clock::now();
  draw();
  timer_ = std::make_unique<MainTimer>(kTick, [this] { changed(); });
}

void LiveLine::changed() {
  if (timer_ && Clock::now() - last_ >= kLeastPause) draw();
}

void LiveLine::draw() {
  if (!enabled_) return;
  last_ = Clock::now();
  drawn_ = true;
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(last_ - began_).count();
  const std::string line = std::to_string(seconds) + " s  " + printable(text_());
  const std::size_t columns = terminalColumns();
  const std::string shown(firstCharacters(line, columns - columns / 4));
  std::fprintf(stderr, "\r\x1b[K%s", shown.c_str());
  std::fflush(stderr);
}

void LiveLine::end() {
  timer_.reset();
  enabled_ = false;
  if (!std::exchange(drawn_, false)) return;
  std::fputs("\r\x1b[K", stderr);
  std::fflush(stderr);
}

}  // namespace sorrel::cli
