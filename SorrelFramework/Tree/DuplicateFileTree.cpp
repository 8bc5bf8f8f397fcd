#include "SorrelFramework/Tree/DuplicateFileTree.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

#include "SorrelFramework/Platform/Text/Text.hpp"
#include "SorrelFramework/Units/MD5.hpp"

namespace sorrel {
namespace {

bool isASCII(char byte) { return static_cast<unsigned char>(byte) < 0x80; }
bool isContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

/// A letter followed by a combining accent is one character, and not an ASCII one. Two ASCII characters never
/// combine, except carriage return and line feed.
bool isPartOfMore(std::string_view text, std::size_t at) {
  std::size_t first = at;
  if (at > 0 && !isASCII(text[at - 1])) {
    do --first;
    while (first > 0 && isContinuation(text[first]));
  }
  std::size_t last = at + 1;
  if (last < text.size() && !isASCII(text[last])) {
    do ++last;
    while (last < text.size() && isContinuation(text[last]));
  }
  const auto isOne = [&](std::size_t from, std::size_t to) {
    return to - from > 1 && graphemeCount(text.substr(from, to - from)) == 1;
  };
  return isOne(first, at + 1) || isOne(at, last);
}

/// CR LF is one character with the value of the line feed.
Integer sumOfASCII(std::string_view text) {
  Integer sum = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (!isASCII(text[at]) || text.substr(at, 2) == "\r\n" || isPartOfMore(text, at)) continue;
    sum += text[at];
  }
  return sum;
}

/// Descending order; for canonically equivalent texts, the greater bytes come first.
bool isBefore(const std::string& a, const std::string& b) {
  if (textLess(b, a)) return true;
  return !textLess(a, b) && a > b;
}

}  // namespace

Integer DuplicateFolderInfo::calculateValue(std::string_view folder1, std::string_view folder2) {
  return std::abs(sumOfASCII(folder1) - sumOfASCII(folder2));
}

void DuplicateNode::inputNode(const std::shared_ptr<DuplicateNode>& /*node*/,
                              const Ref<FileInformation>& /*fileInfo*/,
                              const std::vector<std::string>& /*folders*/, std::string_view /*md5String*/) {}

std::string DuplicateNode::calculationDistanceString(std::vector<std::string> folderStrs) {
  std::ranges::sort(folderStrs, isBefore);
  std::string joined;
  for (const std::string& text : folderStrs) joined += text;
  return MD5(joined);
}

void DuplicateFileTree::addNode(std::string_view /*md5String*/, const Ref<FileInformation>& /*fileInfo*/) {}

void DuplicateFileTree::tree() {}

}  // namespace sorrel
