#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sorrel::test {

/// The bytes of pairs of hexadecimal digits.
[[nodiscard]] std::string bytesOfHex(std::string_view hex);

[[nodiscard]] std::string repeated(std::string_view text, std::size_t times);

/// A binary property list from the bytes of its objects, the first one on top. References take `refSize`
/// bytes; the offset table and the trailer are computed.
[[nodiscard]] std::string binaryList(const std::vector<std::string>& objects, std::size_t refSize = 1);

[[nodiscard]] std::string bigEndian(std::uint64_t value, std::size_t width);

}  // namespace sorrel::test
