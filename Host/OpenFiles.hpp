#pragma once

namespace sorrel::cli {

/// Raises the limit of open files as far as the process may, up to the number that walks on many threads can
/// use.
void raiseOpenFileLimit();

}  // namespace sorrel::cli
