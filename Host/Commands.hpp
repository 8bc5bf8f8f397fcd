#pragma once

#include <span>
#include <string_view>

#include "Host/ExitStatus.hpp"

namespace CLI {
class App;
}

namespace sorrel::cli {

class InterruptWatch;
struct Invocation;

/// A command of the program.
struct Command {
  std::string_view name;
  std::string_view summary;
  void (*addArguments)(CLI::App& parser, Invocation& invocation);
  ExitStatus (*run)(const Invocation& invocation, InterruptWatch& interrupts);
};

/// All commands, sorted by name.
std::span<const Command> commands();

}  // namespace sorrel::cli
