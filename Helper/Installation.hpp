#pragma once

#include <functional>
#include <string>

namespace sorrel::helper {

/// What a caller who wants the helper gone is told: it removes nothing of itself, because its package would
/// still list the files, and because its unit lets it write nothing where they lie.
std::string removalAdvice(const std::string& service);

/// Returns whether the program file that runs now has since been replaced or removed. To be called before
/// anything can have replaced it.
std::function<bool()> watchProgram();

}  // namespace sorrel::helper
