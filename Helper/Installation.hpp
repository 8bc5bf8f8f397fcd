#pragma once

#include <functional>
#include <string>

namespace sorrel::helper {

/// The text for a caller who wants to remove the helper: the helper does not remove itself, because its
/// package would still list the files, and because its unit has no write permission where they lie.
std::string removalAdvice(const std::string& service);

/// Returns a function that checks whether the program file that runs now has since been replaced or removed.
/// To be called before a replacement is possible.
std::function<bool()> watchProgram();

}  // namespace sorrel::helper
