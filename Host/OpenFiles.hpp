#pragma once

namespace sorrel::cli {

/// Raises the limit of open files as far as the process may, up to what walks on many threads can use.
void raiseOpenFileLimit();

}  // namespace sorrel::cli
