// Any text up to a line feed as a query of mdfind(1), and the rest as a name: a valid query means the same
// with blanks around it, and a pattern matches the names that a model of it matches.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Fuzz/Require.hpp"
#include "Tools/FindQuery.hpp"

using sorrel::fuzz::require;
using sorrel::tools::FindQuery;
using sorrel::tools::FoundItem;

namespace {

// A name of the system has at most 255 bytes, and the model's table is as long as the pattern times that.
constexpr std::size_t kLongest = 255;

/// matches[i]: the pattern so far matches the first i bytes of the text.
bool modelFits(std::string_view pattern, std::string_view text) {
  std::vector<bool> matches(text.size() + 1);
  matches[0] = true;
  for (const char c : pattern) {
    std::vector<bool> next(text.size() + 1);
    for (std::size_t i = 0; i <= text.size(); ++i) {
      next[i] = c == '*' ? matches[i] || (i > 0 && next[i - 1]) : i > 0 && matches[i - 1] && text[i - 1] == c;
    }
    matches = std::move(next);
  }
  return matches.back();
}

bool finds(const std::optional<FindQuery>& query, std::string_view name, bool isDirectory = false) {
  return query && query->matches({name, isDirectory, static_cast<std::int64_t>(name.size())});
}

void checkQuery(std::string_view text, std::string_view name) {
  const auto query = FindQuery::parse(text);
  const auto blanked = FindQuery::parse(" \t" + std::string(text) + "\t ");
  require(query.has_value() == blanked.has_value(), "blanks around a query mean nothing");
  for (const bool isDirectory : {false, true}) {
    require(finds(query, name, isDirectory) == finds(blanked, name, isDirectory), "both find alike");
  }
}

void checkPattern(std::string_view pattern, std::string_view name) {
  const bool isPlain = pattern.find_first_of("'\"\\") == std::string_view::npos;
  for (const std::string quote : {"'", "\""}) {
    const auto query = FindQuery::parse("kMDItemFSName==" + quote + std::string(pattern) + quote);
    require(query.has_value() == isPlain, "a pattern holds neither quotes nor backslashes");
    require(!query || finds(query, name) == modelFits(pattern, name), "a pattern finds what the model finds");
  }
}

void checkLimit(std::string_view text, std::string_view name) {
  const auto size = static_cast<std::int64_t>(name.size());
  const auto limit = static_cast<std::int64_t>(text.size());
  const auto query = FindQuery::parse("kMDItemFSSize > " + std::to_string(limit));
  require(query.has_value(), "a number is a limit");
  require(finds(query, name) == (size > limit), "a file above the limit is found");
  require(!finds(query, name, true), "a folder has no size");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input = sorrel::fuzz::textOf(data, size);
  // Neither an argument of a program nor a name contains a NUL.
  if (input.find('\0') != std::string_view::npos) return 0;
  const std::size_t end = input.find('\n');
  const std::string_view text = input.substr(0, end).substr(0, kLongest);
  const std::string_view name = end == input.npos ? input.substr(0, 0) : input.substr(end + 1, kLongest);
  checkQuery(text, name);
  checkPattern(text, name);
  checkLimit(text, name);
  return 0;
}
