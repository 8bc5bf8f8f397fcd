#include "SorrelFramework/Tree/DuplicateFileTree.hpp"

#include <algorithm>
#include <cstdlib>
#include <functional>

#include "SorrelFramework/Units/MD5.hpp"

namespace sorrel {
namespace {

Integer sumOfASCII(std::string_view text) {
  Integer sum = 0;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x80) sum += byte;
  }
  return sum;
}

}  // namespace

Integer DuplicateFolderInfo::calculateValue(std::string_view folder1, std::string_view folder2) {
  return std::abs(sumOfASCII(folder1) - sumOfASCII(folder2));
}

void DuplicateNode::inputNode(const std::shared_ptr<DuplicateNode>& /*node*/,
                              const Ref<FileInformation>& /*fileInfo*/,
                              const std::vector<std::string>& /*folders*/, std::string_view /*md5String*/) {}

std::string DuplicateNode::calculationDistanceString(std::vector<std::string> folderStrs) {
  std::ranges::sort(folderStrs, std::greater<>());
  std::string joined;
  for (const std::string& text : folderStrs) joined += text;
  return MD5(joined);
}

void DuplicateFileTree::addNode(std::string_view /*md5String*/, const Ref<FileInformation>& /*fileInfo*/) {}

void DuplicateFileTree::tree() {}

}  // namespace sorrel
