#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sorrel::tools {

/// The properties of an item that a query can test.
struct FoundItem {
  std::string_view name;  ///< last path component
  bool isDirectory = false;
  std::int64_t size = 0;  ///< bytes; for files only
};

/// A query of mdfind(1), limited to those that the framework uses: one attribute and one value,
///
///     kMDItemFSSize > NUMBER
///     kMDItemFSName == PATTERN            the last path component
///     kMDItemContentType == PATTERN       such as com.apple.application-bundle
///     kMDItemContentTypeTree == PATTERN   any type of the tree, such as public.image
///     kMDItemKind == PATTERN              see itemKind()
///
/// with or without blanks around the operator, "=" for "==", and the pattern in single or double quotes or in
/// none. A "*" in it matches any characters; matching is case-sensitive.
class FindQuery {
 public:
  /// Nothing for any other text.
  static std::optional<FindQuery> parse(std::string_view text);

  [[nodiscard]] bool matches(const FoundItem& item) const;
  /// True if the query tests the size only, not the name.
  [[nodiscard]] bool asksForSize() const { return attribute_ == Attribute::Size; }

 private:
  enum class Attribute { Size, Name, ContentType, ContentTypeTree, Kind };
  struct Row;

  Attribute attribute_ = Attribute::Size;
  std::int64_t number_ = 0;
  std::string pattern_;  // for fnmatch(3)
};

}  // namespace sorrel::tools
