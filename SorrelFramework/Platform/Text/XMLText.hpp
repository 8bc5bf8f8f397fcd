#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace sorrel {

[[nodiscard]] bool isXMLSpace(char c);
/// Without the white space at both ends.
[[nodiscard]] std::string_view trimmedXMLSpace(std::string_view text);
/// "&", "<" and ">" as entities.
[[nodiscard]] std::string escapedXML(std::string_view text);

/// Splits a small XML document into tags and texts, without recursion. Knows only the five entities of XML
/// itself and numeric ones, and rejects a document type with declarations inside.
class XMLScanner {
 public:
  struct Tag {
    std::string_view name;
    bool isEnd = false;    ///< </name>
    bool isEmpty = false;  ///< <name/>
  };

  explicit XMLScanner(std::string_view text) : text_(text) {}

  /// Moves to the first element. False if there is none, or if anything invalid precedes it.
  [[nodiscard]] bool skipProlog();
  /// Skips white space, comments and processing instructions up to the next tag; false if there is anything
  /// else.
  [[nodiscard]] bool skipToTag();
  /// Reads the tag at the current position; its attributes are ignored.
  [[nodiscard]] std::optional<Tag> tag();
  /// Appends the text up to the end tag of `name`, entities resolved, and moves past that tag. False if
  /// another element comes first, or none.
  [[nodiscard]] bool content(std::string_view name, std::string& out);

 private:
  [[nodiscard]] std::string_view rest() const { return text_.substr(position_); }
  [[nodiscard]] bool skipSpace();
  [[nodiscard]] bool skipPast(std::string_view opening, std::string_view closing);
  [[nodiscard]] bool skipDocumentType();
  [[nodiscard]] bool entity(std::string& out);

  std::string_view text_;
  std::size_t position_ = 0;
};

}  // namespace sorrel
