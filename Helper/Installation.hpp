#pragma once

#include <functional>
#include <string>

namespace sorrel::helper {

/// Removes what install-helper put on this machine: the files of its fixed list, each by the full name that
/// was built in. False, with a text, if one of them is left; the others are gone then.
bool removeInstallation(std::string& text);

/// Returns whether the program file that runs now has since been replaced or removed. To be called before
/// anything can have replaced it.
std::function<bool()> watchProgram();

}  // namespace sorrel::helper
