#pragma once

namespace sorrel::cli {

/// For a program that nobody watches: a privileged helper that is installed is used, but none is installed,
/// which would ask for a password.
void useHelperWithoutPrompt();

}  // namespace sorrel::cli
