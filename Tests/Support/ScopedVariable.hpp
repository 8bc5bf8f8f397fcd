#pragma once

#include <optional>
#include <string>

namespace sorrel::test {

/// An environment variable for the duration of a scope; a null `value` removes it. Set it before any thread
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
