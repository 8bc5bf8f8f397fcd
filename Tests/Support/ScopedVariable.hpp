#pragma once

#include <optional>
#include <string>

namespace sorrel::test {

/// An environment variable for the length of a scope; `value` null takes it away. Set it before any thread
/// starts.
class ScopedVariable {
 public:
  ScopedVariable(std::string name, const char* value);
  ~ScopedVariable();
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  std::string name_;
  std::optional<std::string> before_;
};

}  // namespace sorrel::test
