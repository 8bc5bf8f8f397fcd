#include "SorrelFramework/Platform/Base/LinePrinter.hpp"

#include <atomic>
#include <cstdio>
#include <string>

namespace sorrel {
namespace {

std::atomic<LinePrinter> currentPrinter{nullptr};

}  // namespace

void setLinePrinter(LinePrinter printer) { currentPrinter.store(printer); }

void printLine(std::string_view text) {
  if (const LinePrinter print = currentPrinter.load()) {
    print(text);
    return;
  }
  const std::string line = std::string(text) + '\n';
  // One call, so that lines of several threads do not mix.
  std::fwrite(line.data(), 1, line.size(), stdout);
}

}  // namespace sorrel
