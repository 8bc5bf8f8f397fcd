#include "SorrelFramework/Platform/Fatal.hpp"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>

namespace sorrel {
namespace {

std::atomic<FatalHandler> handler{nullptr};

}  // namespace

void setFatalHandler(FatalHandler newHandler) { handler.store(newHandler); }

void fatalStop(std::string_view reason, std::string_view context) {
  std::string text(reason);
  text += '\n';
  if (!context.empty()) text.append("  ").append(context) += '\n';
  // One write: several threads may stop at once, and no lock may be needed to say why.
  [[maybe_unused]] const auto written = ::write(STDERR_FILENO, text.data(), text.size());
  if (const FatalHandler end = handler.load()) end();
  std::abort();
}

}  // namespace sorrel
