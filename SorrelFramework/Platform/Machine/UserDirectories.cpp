#include "SorrelFramework/Platform/Machine/UserDirectories.hpp"

#include <cstddef>
#include <utility>

#include "SorrelFramework/Platform/Files/FileBytes.hpp"

namespace sorrel {
namespace {

constexpr std::size_t kLongestFile = 1 << 20;

void skipBlanks(std::string_view& text) {
  const std::size_t first = text.find_first_not_of(" \t");
  text.remove_prefix(first == std::string_view::npos ? text.size() : first);
}

bool skip(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

/// The unescaped text before the closing quotation mark; nothing if there is none.
std::optional<std::string> unescaped(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '"') return plain;
    if (text[i] == '\\' && i + 1 < text.size()) ++i;
    plain += text[i];
  }
  return std::nullopt;
}

std::optional<std::string> folderOfLine(std::string_view line, std::string_view variable,
                                        std::string_view home) {
  skipBlanks(line);
  if (!skip(line, variable)) return std::nullopt;
  skipBlanks(line);
  if (!skip(line, "=")) return std::nullopt;
  skipBlanks(line);
  if (!skip(line, "\"")) return std::nullopt;
  const bool isBelowHome = line.starts_with("$HOME/");
  if (isBelowHome) line.remove_prefix(line.find('/'));
  if (!line.starts_with('/')) return std::nullopt;
  const auto plain = unescaped(line);
  if (!plain) return std::nullopt;
  std::string folder = (isBelowHome ? std::string(home) : std::string()) + *plain;
  while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
  return folder;
}

}  // namespace

std::optional<std::string> userDirectoryIn(std::string_view text, std::string_view variable,
                                           std::string_view home) {
  std::optional<std::string> found;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(line.size() < text.size() ? line.size() + 1 : line.size());
    if (auto folder = folderOfLine(line, variable, home)) found = std::move(folder);
  }
  return found;
}

std::optional<std::string> userDirectory(const std::string& configFolder, std::string_view variable,
                                         std::string_view home) {
  const auto text = readFileBytes(configFolder + "/user-dirs.dirs", kLongestFile);
  if (!text) return std::nullopt;
  return userDirectoryIn(*text, variable, home);
}

}  // namespace sorrel
