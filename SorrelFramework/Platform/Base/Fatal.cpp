#include "SorrelFramework/Platform/Base/Fatal.hpp"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>

namespace sorrel {
namespace {

std::atomic<FatalHandler> handler{nullptr};

/// Escapes everything but printable ASCII: a key of a catalogue may contain any bytes, even terminal
/// commands.
void appendPrintable(std::string& text, std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    if (value >= 0x20 && value < 0x7F) {
      text += byte;
    } else {
      text.append("\\x") += digits[value >> 4];
      text += digits[value & 0xFU];
    }
  }
  text += '\n';
}

}  // namespace

void setFatalHandler(FatalHandler newHandler) { handler.store(newHandler); }

void fatalStop(std::string_view reason, std::string_view context) {
  std::string text;
  appendPrintable(text, reason);
  if (!context.empty()) appendPrintable(text.append("  "), context);
  // One write call: several threads may stop at once, and reporting the reason must not need a lock.
  [[maybe_unused]] const auto written = ::write(STDERR_FILENO, text.data(), text.size());
  if (const FatalHandler end = handler.load()) end();
  std::abort();
}

}  // namespace sorrel
