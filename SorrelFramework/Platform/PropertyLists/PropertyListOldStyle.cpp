// The text form from before XML: { key = value; }, ( a, b ), <0fa1>, 'text', "text", text. libplist can't
// read it.
#include <algorithm>
#include <array>

#include "SorrelFramework/Platform/PropertyLists/PropertyListForms.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"
#include "SorrelFramework/Platform/Text/UTF.hpp"

namespace sorrel {

namespace {

/// The characters for the bytes 128-255 of an octal escape: the NeXTSTEP character set.
constexpr std::array<char16_t, 128> kNeXTSTEP = {
    0x00A0, 0x00C0, 0x00C1, 0x00C2, 0x00C3, 0x00C4, 0x00C5, 0x00C7, 0x00C8, 0x00C9, 0x00CA, 0x00CB, 0x00CC,
    0x00CD, 0x00CE, 0x00CF, 0x00D0, 0x00D1, 0x00D2, 0x00D3, 0x00D4, 0x00D5, 0x00D6, 0x00D9, 0x00DA, 0x00DB,
    0x00DC, 0x00DD, 0x00DE, 0x00B5, 0x00D7, 0x00F7, 0x00A9, 0x00A1, 0x00A2, 0x00A3, 0x2044, 0x00A5, 0x0192,
    0x00A7, 0x00A4, 0x2019, 0x201C, 0x00AB, 0x2039, 0x203A, 0xFB01, 0xFB02, 0x00AE, 0x2013, 0x2020, 0x2021,
    0x00B7, 0x00A6, 0x00B6, 0x2022, 0x201A, 0x201E, 0x201D, 0x00BB, 0x2026, 0x2030, 0x00AC, 0x00BF, 0x00B9,
    0x02CB, 0x00B4, 0x02C6, 0x02DC, 0x00AF, 0x02D8, 0x02D9, 0x00A8, 0x00B2, 0x02DA, 0x00B8, 0x00B3, 0x02DD,
    0x02DB, 0x02C7, 0x2014, 0x00B1, 0x00BC, 0x00BD, 0x00BE, 0x00E0, 0x00E1, 0x00E2, 0x00E3, 0x00E4, 0x00E5,
    0x00E7, 0x00E8, 0x00E9, 0x00EA, 0x00EB, 0x00EC, 0x00C6, 0x00ED, 0x00AA, 0x00EE, 0x00EF, 0x00F0, 0x00F1,
    0x0141, 0x00D8, 0x0152, 0x00BA, 0x00F2, 0x00F3, 0x00F4, 0x00F5, 0x00F6, 0x00E6, 0x00F9, 0x00FA, 0x00FB,
    0x0131, 0x00FC, 0x00FD, 0x0142, 0x00F8, 0x0153, 0x00DF, 0x00FE, 0x00FF, 0xFFFD, 0xFFFD};

struct Escape {
  char letter;
  char16_t meaning;
};
constexpr Escape kEscapes[] = {{'a', u'\a'}, {'b', u'\b'}, {'f', u'\f'}, {'n', u'\n'},
                               {'r', u'\r'}, {'t', u'\t'}, {'v', u'\v'}};

bool isBare(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '$' ||
         c == '/' || c == ':' || c == '.' || c == '-';
}

bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// The value of a digit, or the base if it is not a digit.
unsigned digit(char c, unsigned base) {
  unsigned value = base;
  if (c >= '0' && c <= '9') value = static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f') value = static_cast<unsigned>(c - 'a') + 10;
  if (c >= 'A' && c <= 'F') value = static_cast<unsigned>(c - 'A') + 10;
  return value < base ? value : base;
}

class OldStyleReader {
 public:
  explicit OldStyleReader(std::string_view text) : text_(text) {}

  std::optional<PropertyList> read() {
    if (!skipBlanks()) return PropertyList();  // only blanks and comments: a strings file without a line
    std::optional<PropertyList> root = value(1);
    if (!root.has_value() || !skipBlanks()) return root;
    // Text after the first value: only a file of "key = value;" lines has that.
    if (root->asString() == nullptr) return std::nullopt;
    position_ = 0;
    root = entries(1);
    return skipBlanks() ? std::nullopt : std::move(root);
  }

 private:
  [[nodiscard]] bool atEnd() const { return position_ >= text_.size(); }
  [[nodiscard]] char here() const { return text_[position_]; }

  /// Skips to the next significant character; false at the end. An unterminated comment extends to the end.
  bool skipBlanks() {
    while (!atEnd()) {
      const std::string_view rest = text_.substr(position_);
      if (isBlank(here())) {
        ++position_;
      } else if (rest.starts_with("//")) {
        position_ = std::min(text_.find_first_of("\r\n", position_), text_.size());
      } else if (rest.starts_with("/*")) {
        const std::size_t end = text_.find("*/", position_ + 2);
        position_ = end == text_.npos ? text_.size() : end + 2;
      } else {
        return true;
      }
    }
    return false;
  }

  bool take(char c) {
    if (!skipBlanks() || here() != c) return false;
    ++position_;
    return true;
  }

  std::optional<PropertyList> value(std::size_t depth) {
    if (!skipBlanks() || ++nodes_ > kPropertyListNodeLimit) return std::nullopt;
    if (take('{')) {
      std::optional<PropertyList> list = entries(depth);
      return take('}') ? std::move(list) : std::nullopt;
    }
    if (take('(')) return array(depth);
    if (take('<')) return data();
    std::optional<std::string> text = string();
    if (!text.has_value()) return std::nullopt;
    return PropertyList(std::move(*text));
  }

  /// Repeated "key = value;", up to a token that is not a key. "key;" is short for "key = key;".
  std::optional<PropertyList> entries(std::size_t depth) {
    if (depth > kPropertyListDepthLimit) return std::nullopt;
    PropertyListDictionary values;
    while (skipBlanks() && here() != '}') {
      std::optional<std::string> key = string();
      if (!key.has_value() || ++nodes_ > kPropertyListNodeLimit) return std::nullopt;
      if (take('=')) {
        std::optional<PropertyList> entry = value(depth + 1);
        if (!entry.has_value()) return std::nullopt;
        values.set(std::move(*key), std::move(*entry));
      } else {
        const PropertyList text(*key);
        values.set(std::move(*key), text);
      }
      if (!take(';')) return std::nullopt;
    }
    return PropertyList(std::move(values));
  }

  std::optional<PropertyList> array(std::size_t depth) {
    if (depth > kPropertyListDepthLimit) return std::nullopt;
    PropertyList::Array values;
    while (!take(')')) {
      std::optional<PropertyList> item = value(depth + 1);
      if (!item.has_value()) return std::nullopt;
      values.push_back(std::move(*item));
      if (!take(',')) return take(')') ? std::optional<PropertyList>(std::move(values)) : std::nullopt;
    }
    return PropertyList(std::move(values));
  }

  std::optional<PropertyList> data() {
    PropertyList::Data bytes;
    while (!take('>')) {
      if (atEnd() || text_.size() - position_ < 2) return std::nullopt;
      const unsigned high = digit(text_[position_], 16);
      const unsigned low = digit(text_[position_ + 1], 16);
      if (high == 16 || low == 16) return std::nullopt;
      bytes.push_back(static_cast<std::uint8_t>(high << 4 | low));
      position_ += 2;
    }
    return PropertyList(std::move(bytes));
  }

  std::optional<std::string> string() {
    if (!skipBlanks()) return std::nullopt;
    if (here() == '"' || here() == '\'') return quoted(text_[position_++]);
    const std::size_t start = position_;
    while (!atEnd() && isBare(here())) ++position_;
    if (position_ == start) return std::nullopt;
    return std::string(text_.substr(start, position_ - start));
  }

  std::optional<std::string> quoted(char quote) {
    std::string out;
    const char stops[] = {quote, '\\'};
    for (;;) {
      const std::size_t end = text_.find_first_of({stops, 2}, position_);
      if (end == text_.npos) return std::nullopt;
      out += text_.substr(position_, end - position_);
      position_ = end;
      if (here() == quote) {
        ++position_;
        return out;
      }
      escapes(out);
    }
  }

  /// Decodes a run of escapes at once, because two of them may be the halves of one character.
  void escapes(std::string& out) {
    std::u16string units;
    std::string plain;
    while (plain.empty() && text_.substr(position_).size() >= 2 && here() == '\\') {
      ++position_;
      escape(units, plain);
    }
    out += utf8FromUTF16(units);
    out += plain;
    // A backslash at the very end.
    if (plain.empty() && position_ + 1 == text_.size() && here() == '\\') ++position_;
  }

  /// One escape without its backslash: a unit, or the byte itself if the escape has no meaning.
  void escape(std::u16string& units, std::string& plain) {
    if (digit(here(), 8) < 8) {
      const unsigned code = number(8, 3) & 0xFF;
      units.push_back(code < 0x80 ? static_cast<char16_t>(code) : kNeXTSTEP[code - 0x80]);
      return;
    }
    const char letter = text_[position_++];
    if (letter == 'U') {
      units.push_back(static_cast<char16_t>(number(16, 4)));
      return;
    }
    for (const Escape& known : kEscapes) {
      if (known.letter != letter) continue;
      units.push_back(known.meaning);
      return;
    }
    plain.push_back(letter);
  }

  unsigned number(unsigned base, int digits) {
    unsigned code = 0;
    for (; digits > 0 && !atEnd() && digit(here(), base) < base; --digits)
      code = code * base + digit(text_[position_++], base);
    return code;
  }

  std::string_view text_;
  std::size_t position_ = 0;
  std::size_t nodes_ = 0;
};

}  // namespace

std::optional<PropertyList> propertylist::parseOldStyle(std::string_view text) {
  if (!isValidUTF8(text)) return std::nullopt;
  return OldStyleReader(text).read();
}

}  // namespace sorrel
