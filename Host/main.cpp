#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Host/CommandError.hpp"
#include "Host/CommandLine.hpp"
#include "Host/Commands.hpp"
#include "Host/EngineSwitches.hpp"
#include "Host/ExitStatus.hpp"
#include "Host/InterruptWatch.hpp"
#include "Host/OpenFiles.hpp"
#include "Host/Output.hpp"
#include "Host/SafeText.hpp"
#include "SorrelFramework/Platform/Base/Fatal.hpp"
#include "SorrelFramework/Platform/Base/LinePrinter.hpp"

namespace {

using sorrel::cli::CommandError;
using sorrel::cli::ExitStatus;
using sorrel::cli::Invocation;

/// Standard output is reserved for results.
void printToStandardError(std::string_view text) {
  std::cerr << "sorrel: " + sorrel::cli::printable(text) + '\n';
}

void endAfterFatalStop() { std::_Exit(static_cast<int>(ExitStatus::FatalStop)); }

ExitStatus run(const std::vector<std::string>& words, sorrel::cli::InterruptWatch& interrupts) {
  try {
    const auto parsed = sorrel::cli::parseCommandLine(words);
    if (const auto* const status = std::get_if<ExitStatus>(&parsed)) return *status;
    const auto& invocation = std::get<Invocation>(parsed);
    sorrel::cli::setEngineSwitches(invocation.options);
    return invocation.command->run(invocation, interrupts);
  } catch (const CommandError& error) {
    std::cerr << "sorrel: " << sorrel::cli::printable(error.what()) << '\n';
    return error.status();
  }
}

}  // namespace

int main(int argc, char** argv) {
  sorrel::cli::openStandardStreams();
  sorrel::cli::raiseOpenFileLimit();
  sorrel::cli::InterruptWatch interrupts;
  sorrel::setFatalHandler(endAfterFatalStop);
  sorrel::setLinePrinter(printToStandardError);
  std::ios::sync_with_stdio(false);
  return static_cast<int>(run({argv + 1, argv + argc}, interrupts));
}
