#pragma once

#include <stdexcept>
#include <string>

#include "Host/ExitStatus.hpp"

namespace sorrel::cli {

/// Ends a command with a message on standard error. Thrown anywhere in the program, caught in main only; the
/// framework never sees it.
class CommandError : public std::runtime_error {
 public:
  CommandError(ExitStatus status, const std::string& message)
      : std::runtime_error(message), status_(status) {}
  [[nodiscard]] ExitStatus status() const noexcept { return status_; }

 private:
  ExitStatus status_;
};

}  // namespace sorrel::cli
