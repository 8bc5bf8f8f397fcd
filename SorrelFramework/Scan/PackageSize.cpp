#include "SorrelFramework/Scan/PackageSize.hpp"

#include <limits>
#include <optional>
#include <string>

#include "SorrelFramework/Platform/Text/Text.hpp"

namespace sorrel {
namespace {

bool isSizeLine(std::string_view line) {
  return line.find("kMDItemPhysicalSize") != std::string_view::npos ||
         line.find("kMDItemFSSize") != std::string_view::npos;
}

/// The first run of digits as a number, limited to the range of its type.
std::int64_t firstNumber(std::string_view line) {
  constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
  constexpr std::string_view digits = "0123456789";
  std::int64_t number = 0;
  for (std::size_t i = line.find_first_of(digits); i < line.size() && line[i] >= '0' && line[i] <= '9'; ++i) {
    const int digit = line[i] - '0';
    if (number > (largest - digit) / 10) return largest;
    number = number * 10 + digit;
  }
  return number;
}

}  // namespace

std::int64_t packageSizeInOutput(std::string_view output) {
  std::optional<std::string_view> first;
  while (!output.empty()) {
    const std::string_view line = output.substr(0, output.find('\n'));
    output.remove_prefix(line.size() < output.size() ? line.size() + 1 : line.size());
    if (isSizeLine(line) && (!first || textLess(line, *first))) first = line;
  }
  return first ? firstNumber(*first) : 0;
}

}  // namespace sorrel
