#pragma once

#include <string_view>

namespace sorrel {

/// The message for a missing required value.
inline constexpr std::string_view kUnexpectedNil =
    "Unexpectedly found nil while unwrapping an Optional value";

/// A fatal stop: writes `reason`, and `context` on a line of its own if there is one, to standard error and
/// ends the process through the handler below. Bytes that are not printable ASCII are written as "\xNN". For
/// violated preconditions, defects of the catalogue, and arithmetic that would overflow; never for the state
/// of a user's files.
[[noreturn]] void fatalStop(std::string_view reason, std::string_view context = {});

/// Ends the process after the text was written; `std::abort` unless the application sets another one. A
/// handler that returns is followed by `std::abort`. Set it before the first call of the framework.
using FatalHandler = void (*)();
void setFatalHandler(FatalHandler handler);

}  // namespace sorrel
