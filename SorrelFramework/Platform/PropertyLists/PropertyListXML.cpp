// The XML form, read directly from the scanner into values. A damaged document, or one over a limit, is
// rejected as a whole; only the five named and the numeric references are resolved.
#include <charconv>
#include <ctime>
#include <type_traits>
#include <utility>

#include "SorrelFramework/Platform/PropertyLists/PropertyListForms.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"
#include "SorrelFramework/Platform/Text/XMLText.hpp"

namespace sorrel {
namespace {

using Value = std::optional<PropertyList>;

/// The number that the whole of `text` spells, independent of the locale.
template <class Number>
std::optional<Number> wholeNumber(std::string_view text, int base = 10) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto result = [&] {
    if constexpr (std::is_floating_point_v<Number>) {
      return std::from_chars(text.data(), end, number);
    } else {
      return std::from_chars(text.data(), end, number, base);
    }
  }();
  return result.ec == std::errc() && result.ptr == end ? std::optional(number) : std::nullopt;
}

Value integer(std::string_view text) {
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) text.remove_prefix(1);
  const bool isHex = text.starts_with("0x") || text.starts_with("0X");
  const auto magnitude = wholeNumber<std::uint64_t>(text.substr(isHex ? 2 : 0), isHex ? 16 : 10);
  if (!magnitude || (isNegative && *magnitude > std::uint64_t{1} << 63)) return std::nullopt;
  return isNegative ? PropertyList(static_cast<std::int64_t>(-*magnitude)) : PropertyList(*magnitude);
}

Value real(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  if (text.starts_with('+') || text.find('(') != text.npos) return std::nullopt;
  const auto number = wholeNumber<double>(text);
  return number ? Value(PropertyList(*number)) : std::nullopt;
}

/// "YYYY-MM-DDThh:mm:ssZ" with every field in its range.
Value date(std::string_view text) {
  static constexpr std::string_view kPattern = "0000-00-00T00:00:00Z";
  if (text.size() != kPattern.size()) return std::nullopt;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isDigit = text[i] >= '0' && text[i] <= '9';
    if (kPattern[i] == '0' ? !isDigit : text[i] != kPattern[i]) return std::nullopt;
  }
  const auto field = [text](std::size_t at) { return (text[at] - '0') * 10 + (text[at + 1] - '0'); };
  if (field(5) < 1 || field(5) > 12 || field(8) < 1 || field(8) > 31) return std::nullopt;
  if (field(11) > 23 || field(14) > 59 || field(17) > 59) return std::nullopt;
  std::tm parts{};
  parts.tm_year = field(0) * 100 + field(2) - 1900;
  parts.tm_mon = field(5) - 1;
  parts.tm_mday = field(8);
  parts.tm_hour = field(11);
  parts.tm_min = field(14);
  parts.tm_sec = field(17);
  return PropertyList(Date{static_cast<double>(::timegm(&parts))});
}

/// Base64 with white space anywhere and its padding.
Value decoded(std::string_view text) {
  PropertyList::Data bytes;
  std::uint32_t group = 0;
  std::size_t digits = 0;
  std::size_t padding = 0;
  for (const char c : text) {
    if (isXMLSpace(c)) continue;
    static constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::size_t digit = kDigits.find(c);
    if (c == '=' ? ++padding > 2 : digit == kDigits.npos || padding > 0) return std::nullopt;
    group = group << 6 | static_cast<std::uint32_t>(c == '=' ? 0 : digit);
    if (++digits % 4 != 0) continue;
    for (std::size_t i = 0; i < 3 - padding; ++i)
      bytes.push_back(static_cast<std::uint8_t>(group >> (16 - 8 * i)));
  }
  return digits % 4 == 0 ? Value(PropertyList(std::move(bytes))) : std::nullopt;
}

Value flag(bool value, std::string_view content) {
  return content.empty() ? Value(PropertyList(value)) : std::nullopt;
}

/// Reads one document. The depth limit bounds the recursion.
class XMLReader {
 public:
  explicit XMLReader(std::string_view text) : scanner_(text) {}

  Value read() {
    const auto root = scanner_.skipProlog() ? element() : std::nullopt;
    if (!root || root->isEnd) return std::nullopt;
    if (root->name != "plist") return value(*root, 1);
    if (root->isEmpty) return std::nullopt;
    const auto first = element();
    Value list = first && !first->isEnd ? value(*first, 1) : std::nullopt;
    const auto end = element();
    return end && end->isEnd && end->name == "plist" ? std::move(list) : std::nullopt;
  }

 private:
  using Tag = XMLScanner::Tag;

  std::optional<Tag> element() { return scanner_.skipToTag() ? scanner_.tag() : std::nullopt; }

  /// The value that begins with `tag`.
  Value value(const Tag& tag, std::size_t depth) {
    if (tag.isEnd || ++nodes_ > kPropertyListNodeLimit) return std::nullopt;
    if (tag.name == "dict" || tag.name == "array") {
      if (depth > kPropertyListDepthLimit) return std::nullopt;
      return tag.name == "dict" ? dictionary(tag, depth) : array(tag, depth);
    }
    std::string content;
    if (!tag.isEmpty && !scanner_.content(tag.name, content)) return std::nullopt;
    if (tag.name == "string") return PropertyList(std::move(content));
    if (tag.name == "data") return decoded(content);
    const std::string_view plain = trimmedXMLSpace(content);
    if (tag.name == "integer") return integer(plain);
    if (tag.name == "real") return real(plain);
    if (tag.name == "date") return date(plain);
    if (tag.name == "true") return flag(true, plain);
    if (tag.name == "false") return flag(false, plain);
    return std::nullopt;
  }

  Value array(const Tag& opening, std::size_t depth) {
    PropertyList::Array values;
    for (auto tag = next(opening); tag; tag = element()) {
      if (tag->isEnd) return tag->name == "array" ? Value(PropertyList(std::move(values))) : std::nullopt;
      Value item = value(*tag, depth + 1);
      if (!item) return std::nullopt;
      values.push_back(*std::move(item));
    }
    return std::nullopt;
  }

  Value dictionary(const Tag& opening, std::size_t depth) {
    PropertyListDictionary values;
    for (auto tag = next(opening); tag; tag = element()) {
      if (tag->isEnd) return tag->name == "dict" ? Value(PropertyList(std::move(values))) : std::nullopt;
      std::string key;
      if (tag->name != "key" || ++nodes_ > kPropertyListNodeLimit) return std::nullopt;
      if (!tag->isEmpty && !scanner_.content("key", key)) return std::nullopt;
      const auto first = element();
      Value entry = first ? value(*first, depth + 1) : std::nullopt;
      if (!entry) return std::nullopt;
      values.set(std::move(key), *std::move(entry));
    }
    return std::nullopt;
  }

  /// The tag after `opening`; an empty element is followed by its own end.
  std::optional<Tag> next(const Tag& opening) {
    return opening.isEmpty ? Tag{opening.name, true, false} : element();
  }

  XMLScanner scanner_;
  std::size_t nodes_ = 0;
};

}  // namespace

std::optional<PropertyList> propertylist::parseXML(std::string_view text) {
  if (text.find('\0') != text.npos || !isValidUTF8(text)) return std::nullopt;
  return XMLReader(text).read();
}

}  // namespace sorrel
