#include "Host/ExceptionGlobs.hpp"

#include <cstddef>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include "Host/ScanPlaces.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"

namespace sorrel::cli {
namespace {

bool isWildcard(char byte) { return byte == '*' || byte == '?' || byte == '['; }

std::string withoutSlashesAtTheEnd(std::string word) {
  while (word.size() > 1 && word.ends_with('/')) word.pop_back();
  return word;
}

/// The text before the first wildcard, with quoting backslashes removed, and the offset of the rest.
struct Literal {
  std::string text;
  std::size_t end = 0;
};

/// Up to the last slash before the first wildcard.
Literal literalFolder(std::string_view pattern) {
  Literal folder;
  std::string text;
  for (std::size_t i = 0; i < pattern.size() && !isWildcard(pattern[i]); ++i) {
    if (pattern[i] == '/') folder = {text + '/', i + 1};
    if (pattern[i] == '\\' && ++i == pattern.size()) break;
    text += pattern[i];
  }
  return folder;
}

/// The whole pattern as text; nothing if it has a wildcard.
std::optional<std::string> literalText(std::string_view pattern) {
  std::string text;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (isWildcard(pattern[i])) return std::nullopt;
    if (pattern[i] == '\\' && ++i == pattern.size()) return std::nullopt;
    text += pattern[i];
  }
  return text;
}

std::string quoted(std::string_view path) {
  std::string pattern;
  for (const char byte : path) {
    if (isWildcard(byte) || byte == '\\') pattern += '\\';
    pattern += byte;
  }
  return pattern;
}

/// The targets of this machine's links, and of a volume's links, whose absolute ones begin at its root.
std::vector<std::string> pathsWithoutLinks(const std::string& path) {
  std::vector<std::string> paths;
  for (const auto follow : {straightPath, scannedPath}) {
    std::error_code error;
    if (auto straight = follow(path, error)) paths.push_back(std::move(*straight));
  }
  return paths;
}

std::vector<std::string> spellingsOf(const std::string& pattern) {
  std::vector<std::string> spellings = {pattern};
  const Literal folder = literalFolder(pattern);
  for (std::string& path : pathsWithoutLinks(folder.text.empty() ? "." : folder.text)) {
    if (!path.ends_with('/')) path += '/';
    spellings.push_back(quoted(path) + pattern.substr(folder.end));
  }
  if (const auto text = literalText(pattern)) {
    for (const std::string& path : pathsWithoutLinks(*text)) spellings.push_back(quoted(path));
  }
  return spellings;
}

}  // namespace

Globs exceptionGlobs(const std::vector<std::string>& words) {
  std::vector<Globs::Pattern> patterns;
  patterns.reserve(words.size());
  for (const std::string& word : words) patterns.push_back({word, spellingsOf(withoutSlashesAtTheEnd(word))});
  const bool isCaseIgnored = Host::current().ignoresLetterCase();
  return {std::move(patterns), isCaseIgnored ? Globs::LetterCase::Ignored : Globs::LetterCase::Counts};
}

}  // namespace sorrel::cli
