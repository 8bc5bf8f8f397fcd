#include "Tests/Support/PropertyListBytes.hpp"

namespace sorrel::test {

std::string bytesOfHex(std::string_view hex) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
    bytes.push_back(static_cast<char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
  return bytes;
}

std::string repeated(std::string_view text, std::size_t times) {
  std::string out;
  out.reserve(text.size() * times);
  for (std::size_t i = 0; i < times; ++i) out += text;
  return out;
}

std::string bigEndian(std::uint64_t value, std::size_t width) {
  std::string bytes;
  for (std::size_t i = width; i-- > 0;) bytes.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
  return bytes;
}

std::string binaryList(const std::vector<std::string>& objects, std::size_t refSize) {
  std::string bytes = "bplist00";
  std::string table;
  for (const std::string& object : objects) {
    table += bigEndian(bytes.size(), 4);
    bytes += object;
  }
  const std::size_t tableOffset = bytes.size();
  return bytes + table + std::string(6, '\0') + bigEndian(4, 1) + bigEndian(refSize, 1) +
         bigEndian(objects.size(), 8) + bigEndian(0, 8) + bigEndian(tableOffset, 8);
}

}  // namespace sorrel::test
