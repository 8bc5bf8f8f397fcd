#pragma once

#include "Host/ExitStatus.hpp"

namespace CLI {
class App;
}

namespace sorrel::cli {

class InterruptWatch;
struct Invocation;

/// `sorrel clean`: a scan, ticks, and the clean of the ticked items.
void takeCleanArguments(CLI::App& parser, Invocation& invocation);
ExitStatus runCleanCommand(const Invocation& invocation, InterruptWatch& interrupts);

}  // namespace sorrel::cli
