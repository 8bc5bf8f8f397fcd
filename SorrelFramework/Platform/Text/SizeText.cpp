#include "SorrelFramework/Platform/Text/SizeText.hpp"

#include <array>
#include <cstddef>
#include <cstdio>

namespace sorrel {

std::string sizeText(std::int64_t bytes) {
  if (bytes < 1024) return std::to_string(bytes) + " B";
  constexpr std::array<const char*, 6> kUnits = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  double value = static_cast<double>(bytes) / 1024;
  std::size_t unit = 0;
  // 1023.95 would be printed as 1024.0.
  while (value >= 1023.95 && unit + 1 < kUnits.size()) {
    value /= 1024;
    ++unit;
  }
  std::array<char, 32> text{};
  const int length = std::snprintf(text.data(), text.size(), "%.1f %s", value, kUnits[unit]);
  return {text.data(), static_cast<std::size_t>(length)};
}

}  // namespace sorrel
