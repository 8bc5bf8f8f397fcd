#pragma once

#include <cstdint>
#include <cstdlib>

namespace sorrel::test {

/// The number in an environment variable, which can make a test run longer.
inline std::uint64_t numberFrom(const char* variable, std::uint64_t otherwise) {
  const char* const text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

}  // namespace sorrel::test
