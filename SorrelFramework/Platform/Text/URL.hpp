#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/Platform/Text/SharedText.hpp"

namespace sorrel {

/// A location. Keeps its text as it was given (RFC 3986 characters, percent-encoded) and implements the rules
/// of file URLs. Copies share the text. Names on disk are bytes: every byte of a path, of any value, survives
/// the conversion into a URL and back.
class URL {
 public:
  /// The file URL of the empty path: a relative URL "./" based on the current folder of the process at this
  /// time.
  URL();

  /// Accepts `text` if it is not empty and has only characters that a URL may contain: ASCII letters, digits,
  /// "!$&'()*+,-./:;=?@_~[]", one "#", and "%" followed by two hexadecimal digits. No scheme is needed.
  static std::optional<URL> parse(std::string_view text);

  /// The file URL of a path. A path that ends in "/" is a folder; otherwise lstat decides (a link to a folder
  /// is not a folder). The empty path gives URL().
  static URL fileURL(std::string_view path);
  /// The same without reading the disk: a folder's URL ends in exactly one "/", any other in none.
  static URL fileURL(std::string_view path, bool isDirectory);
  /// A file URL from text that is already percent-encoded, `head` and `tail` joined. For walks, which encode
  /// each folder's path once; both pieces must come from other file URLs or from percentEncodedPath().
  static URL fromEncodedPieces(std::string_view head, std::string_view tail);

  /// The whole text; a relative URL is resolved against its base.
  [[nodiscard]] std::string absoluteString() const;
  /// The stored text without a copy: equal to absoluteString() except for URL(), where it is "./".
  [[nodiscard]] std::string_view relativeText() const noexcept {
    return isEmptyPath() ? std::string_view("./") : text_.view();
  }
  /// The shared block of the text, for values that keep the same text.
  [[nodiscard]] const SharedText& sharedText() const noexcept { return text_; }
  [[nodiscard]] bool isFileURL() const;
  /// True for the file URL of the empty path.
  [[nodiscard]] bool isEmptyPath() const noexcept { return text_.view().starts_with(kEmptyPath); }

  /// Percent-decoded bytes without the trailing slash (the root stays "/"); "" for a URL without a path.
  [[nodiscard]] std::string path() const;
  /// Last component of the path, decoded, a trailing slash ignored; "/" for the root, "" without a path.
  [[nodiscard]] std::string lastPathComponent() const;
  [[nodiscard]] std::string pathExtension() const;
  [[nodiscard]] URL deletingPathExtension() const;
  /// `component` appended after one "/". A file URL gets a trailing "/" if the result is a folder on disk
  /// (lstat).
  [[nodiscard]] URL appendingPathComponent(std::string_view component) const;
  [[nodiscard]] URL appendingPathComponent(std::string_view component, bool isDirectory) const;
  /// ["/", "Users", "a"] for file:///Users/a.
  [[nodiscard]] std::vector<std::string> pathComponents() const;
  /// The printed form: the text, for a relative URL followed by " -- " and its base.
  [[nodiscard]] std::string description() const;

  /// By text and base: file:///a and file:///a/ differ.
  friend bool operator==(const URL& a, const URL& b) noexcept = default;
  friend bool operator<(const URL& a, const URL& b) noexcept { return a.text_.view() < b.text_.view(); }

 private:
  /// Precedes the base in the text of the empty path. No other URL contains a blank, so one text is enough: a
  /// scan keeps millions of them.
  static constexpr std::string_view kEmptyPath = "./ -- ";

  struct Absolute {};
  URL(Absolute, SharedText text) : text_(std::move(text)) {}
  [[nodiscard]] std::string_view absoluteText() const noexcept;

  SharedText text_;
};

/// "[a, b]": the standard array form of the elements' descriptions.
std::string describe(const std::vector<URL>& urls);

/// The bytes of a path in the form of a file URL: every byte except A-Z a-z 0-9 !$&'()*+,-./:=@_~ as %XX.
std::string percentEncodedPath(std::string_view path);
/// Appends percentEncodedPath(path) to `out`.
void appendPercentEncodedPath(std::string& out, std::string_view path);
/// Decodes each %XX; a "%" without two hexadecimal digits stays as it is.
std::string percentDecodedBytes(std::string_view text);
/// The strict form: nothing if a "%" lacks two hexadecimal digits or the decoded bytes are not UTF-8.
std::optional<std::string> removingPercentEncoding(std::string_view text);

/// Extension of a file name, without the dot; "" if it has none. A dot that is the first or last character
/// does not begin one, nor is a text with a blank, a slash or a bidirectional control character an extension.
std::string_view pathExtension(std::string_view lastComponent);
/// "/a/b" gives "/a", "/a" gives "/", "a" gives "".
std::string deletingLastPathComponent(std::string_view path);
/// "/a//" gives "a", "/" gives "/".
std::string_view lastPathComponent(std::string_view path);
/// Joined with one "/", runs of slashes squeezed, none at the end.
std::string appendingPathComponent(std::string_view path, std::string_view component);

}  // namespace sorrel

template <>
struct std::hash<sorrel::URL> {
  std::size_t operator()(const sorrel::URL& url) const noexcept {
    return std::hash<std::string_view>()(url.relativeText());
  }
};
