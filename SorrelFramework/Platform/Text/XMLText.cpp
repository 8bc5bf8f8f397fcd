#include "SorrelFramework/Platform/Text/XMLText.hpp"

#include <charconv>
#include <cstdint>
#include <utility>

#include "SorrelFramework/Platform/Text/UTF.hpp"

namespace sorrel {

namespace {

constexpr std::pair<std::string_view, char> kEntities[] = {
    {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};

/// Longest valid text between "&" and ";": a numeric reference with leading zeros.
constexpr std::size_t kLongestEntity = 16;

std::optional<std::string> numericEntity(std::string_view digits) {
  const bool isHex = digits.starts_with('x') || digits.starts_with('X');
  if (isHex) digits.remove_prefix(1);
  std::uint32_t point = 0;
  const auto [end, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), point, isHex ? 16 : 10);
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  if (point == 0 || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) return std::nullopt;
  if (point <= 0xFFFF) {
    const char16_t unit = static_cast<char16_t>(point);
    return utf8FromUTF16({&unit, 1});
  }
  const char16_t pair[] = {static_cast<char16_t>(0xD7C0 + (point >> 10)),
                           static_cast<char16_t>(0xDC00 + (point & 0x3FF))};
  return utf8FromUTF16({pair, 2});
}

}  // namespace

bool isXMLSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

std::string_view trimmedXMLSpace(std::string_view text) {
  while (!text.empty() && isXMLSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isXMLSpace(text.back())) text.remove_suffix(1);
  return text;
}

std::string escapedXML(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    if (c == '&') {
      out += "&amp;";
    } else if (c == '<') {
      out += "&lt;";
    } else if (c == '>') {
      out += "&gt;";
    } else {
      out.push_back(c);
    }
  }
  return out;
}

bool XMLScanner::skipSpace() {
  while (position_ < text_.size() && isXMLSpace(text_[position_])) ++position_;
  return position_ < text_.size();
}

bool XMLScanner::skipPast(std::string_view opening, std::string_view closing) {
  const std::size_t end = text_.find(closing, position_ + opening.size());
  if (end == text_.npos) return false;
  position_ = end + closing.size();
  return true;
}

bool XMLScanner::skipDocumentType() {
  // Only a document type with a part in brackets can declare entities, and no ordinary document has one.
  const std::size_t end = text_.find_first_of("[>", position_);
  if (end == text_.npos || text_[end] == '[') return false;
  position_ = end + 1;
  return true;
}

bool XMLScanner::skipProlog() {
  while (skipToTag()) {
    if (!rest().starts_with("<!DOCTYPE")) return true;
    if (!skipDocumentType()) return false;
  }
  return false;
}

bool XMLScanner::skipToTag() {
  while (skipSpace()) {
    if (rest().starts_with("<!--")) {
      if (!skipPast("<!--", "-->")) return false;
    } else if (rest().starts_with("<?")) {
      if (!skipPast("<?", "?>")) return false;
    } else {
      return text_[position_] == '<';
    }
  }
  return false;
}

std::optional<XMLScanner::Tag> XMLScanner::tag() {
  const std::size_t end = text_.find_first_of("<>", position_ + 1);
  if (end == text_.npos || text_[end] == '<') return std::nullopt;
  std::string_view inside = text_.substr(position_ + 1, end - position_ - 1);
  position_ = end + 1;
  Tag tag;
  tag.isEnd = inside.starts_with('/');
  if (tag.isEnd) inside.remove_prefix(1);
  tag.isEmpty = inside.ends_with('/');
  if (tag.isEmpty) inside.remove_suffix(1);
  if (tag.isEnd && tag.isEmpty) return std::nullopt;
  tag.name = inside.substr(0, inside.find_first_of(" \t\r\n"));
  return tag;
}

bool XMLScanner::content(std::string_view name, std::string& out) {
  for (;;) {
    const std::size_t end = text_.find_first_of("<&", position_);
    if (end == text_.npos) return false;
    out += text_.substr(position_, end - position_);
    position_ = end;
    if (text_[position_] == '&') {
      if (!entity(out)) return false;
    } else if (rest().starts_with("<![CDATA[")) {
      const std::size_t start = position_ + std::string_view("<![CDATA[").size();
      if (!skipPast("<![CDATA[", "]]>")) return false;
      out += text_.substr(start, position_ - 3 - start);
    } else if (rest().starts_with("<!--")) {
      if (!skipPast("<!--", "-->")) return false;
    } else {
      const std::optional<Tag> closing = tag();
      return closing.has_value() && closing->isEnd && closing->name == name;
    }
  }
}

bool XMLScanner::entity(std::string& out) {
  const std::size_t end = text_.substr(position_, kLongestEntity).find(';');
  if (end == text_.npos) return false;
  const std::string_view name = text_.substr(position_ + 1, end - 1);
  position_ += end + 1;
  if (name.starts_with('#')) {
    const std::optional<std::string> character = numericEntity(name.substr(1));
    out += character.value_or("");
    return character.has_value();
  }
  for (const auto& [text, character] : kEntities) {
    if (text != name) continue;
    out.push_back(character);
    return true;
  }
  return false;
}

}  // namespace sorrel
