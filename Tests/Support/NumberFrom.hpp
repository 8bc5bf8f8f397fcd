#pragma once

#include <cstdint>
#include <cstdlib>

namespace sorrel::test {

/// The number in an environment variable, by which whoever runs a test can make it longer.
inline std::uint64_t numberFrom(const char* variable, std::uint64_t otherwise) {
  const char* const text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

}  // namespace sorrel::test
