#pragma once

#include <span>
#include <string_view>

namespace sorrel::cli {

struct GlobalOptions;

/// A switch of the library: a static bool of a class, false by default. True makes the operations of the
/// class complete or safe where their default behaviour loses results, or removes more than was ticked.
struct EngineSwitch {
  std::string_view name;  ///< "Class::member"
  bool* value;
};

/// Every switch that the library has, sorted by name. docs/cautions.md describes each.
std::span<const EngineSwitch> engineSwitches();

/// Turns every switch on, unless `--engine-defaults` was given: then all keep the library's default. Call it
/// before the first scan or clean.
void setEngineSwitches(const GlobalOptions& options);

}  // namespace sorrel::cli
