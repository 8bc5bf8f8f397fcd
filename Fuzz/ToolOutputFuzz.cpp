// Any bytes as the output of mdls(1): the size in it equals that of a model which keeps all lines and sorts
// them.
#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "Fuzz/Require.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"
#include "SorrelFramework/Scan/PackageSize.hpp"

using namespace sorrel;
using sorrel::fuzz::require;

namespace {

bool isASCII(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

bool comesBefore(const std::string& a, const std::string& b) {
  return isASCII(a) && isASCII(b) ? a < b : textLess(a, b);
}

std::vector<std::string> sizeLines(std::string_view output) {
  std::vector<std::string> lines;
  for (const std::string& line : componentsSeparatedBy(output, "\n")) {
    if (line.find("kMDItemPhysicalSize") != line.npos || line.find("kMDItemFSSize") != line.npos) {
      lines.push_back(line);
    }
  }
  std::stable_sort(lines.begin(), lines.end(), comesBefore);
  return lines;
}

std::int64_t modelOfNumber(const std::string& line) {
  constexpr std::string_view digits = "0123456789";
  const std::size_t begin = line.find_first_of(digits);
  if (begin == line.npos) return 0;
  std::string number = line.substr(begin, line.find_first_not_of(digits, begin) - begin);
  number.erase(0, std::min(number.find_first_not_of('0'), number.size()));
  const std::string largest = std::to_string(std::numeric_limits<std::int64_t>::max());
  if (number.size() > largest.size() || (number.size() == largest.size() && number > largest))
    number = largest;
  return number.empty() ? 0 : std::stoll(number);
}

std::int64_t modelOfSize(std::string_view output) {
  const std::vector<std::string> lines = sizeLines(output);
  return lines.empty() ? 0 : modelOfNumber(lines.front());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view output = fuzz::textOf(data, size);
  const std::int64_t found = packageSizeInOutput(output);
  require(found >= 0, "a size is not negative");
  require(found == modelOfSize(output), "the size is that of the first line in order");
  require(packageSizeInOutput(std::string(output) + "\n") == found, "a line feed at the end means nothing");
  return 0;
}
