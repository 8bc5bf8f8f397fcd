#include "Tools/FindQuery.hpp"

#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <system_error>

#include "SorrelFramework/Platform/Items/ContentType.hpp"
#include "Tools/ItemKind.hpp"

namespace sorrel::tools {
namespace {

constexpr std::string_view kBlanks = " \t";

std::string_view withoutBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// The text between quotes, or a text without quotes; nothing if they do not match.
std::optional<std::string_view> unquoted(std::string_view text) {
  if (text.empty()) return std::nullopt;
  const char quote = text.front();
  if (quote == '\'' || quote == '"') {
    if (text.size() < 2 || text.back() != quote) return std::nullopt;
    text = text.substr(1, text.size() - 2);
  }
  if (text.find_first_of("'\"\\") != std::string_view::npos) return std::nullopt;
  return text;
}

/// All characters except "*" are literal.
std::string fnmatchPattern(std::string_view text) {
  std::string pattern;
  for (const char c : text) {
    if (c != '*') pattern += '\\';
    pattern += c;
  }
  return pattern;
}

std::optional<std::int64_t> number(std::string_view text) {
  std::int64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

}  // namespace

struct FindQuery::Row {
  std::string_view name;
  std::string_view comparison;
  Attribute attribute;
};

std::optional<FindQuery> FindQuery::parse(std::string_view text) {
  static constexpr std::array<Row, 5> kRows = {{
      {"kMDItemFSSize", ">", Attribute::Size},
      {"kMDItemFSName", "==", Attribute::Name},
      {"kMDItemContentType", "==", Attribute::ContentType},
      {"kMDItemContentTypeTree", "==", Attribute::ContentTypeTree},
      {"kMDItemKind", "==", Attribute::Kind},
  }};
  text = withoutBlanks(text);
  const std::size_t nameEnd = text.find_first_of(" \t=><!");
  if (nameEnd == std::string_view::npos) return std::nullopt;
  const std::string_view name = text.substr(0, nameEnd);
  text = withoutBlanks(text.substr(nameEnd));
  std::string_view comparison = text.substr(0, text.find_first_not_of("=><!"));
  const std::string_view value = withoutBlanks(text.substr(comparison.size()));
  if (comparison == "=") comparison = "==";

  for (const Row& row : kRows) {
    if (row.name != name || row.comparison != comparison) continue;
    FindQuery query;
    query.attribute_ = row.attribute;
    if (row.attribute == Attribute::Size) {
      const auto limit = number(value);
      if (!limit) return std::nullopt;
      query.number_ = *limit;
    } else {
      const auto pattern = unquoted(value);
      if (!pattern) return std::nullopt;
      query.pattern_ = fnmatchPattern(*pattern);
    }
    return query;
  }
  return std::nullopt;
}

bool FindQuery::matches(const FoundItem& item) const {
  const auto fits = [this](const std::string& text) {
    return ::fnmatch(pattern_.c_str(), text.c_str(), 0) == 0;
  };
  switch (attribute_) {
    case Attribute::Size:
      return !item.isDirectory && item.size > number_;
    case Attribute::Name:
      return fits(std::string(item.name));
    case Attribute::ContentType:
      return fits(contentType(item.name, item.isDirectory));
    case Attribute::ContentTypeTree:
      return std::ranges::any_of(contentTypeTree(item.name, item.isDirectory), fits);
    case Attribute::Kind:
      return fits(itemKind(item.name, item.isDirectory));
  }
  return false;
}

}  // namespace sorrel::tools
