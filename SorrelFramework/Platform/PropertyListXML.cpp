// The XML form. libplist 2.2.0 does the reading, behind a guard: its parser and its free() recurse once for
// each level, it knows no byte order mark, drops what it does not understand, reads "010" as octal and "1,5"
// where the locale says so. Therefore the guard below goes over the whole document first, without recursion,
// refuses what is damaged or over a limit, and hands on a copy with nothing in it but plain elements: no
// prolog, no document type, no comments, no attributes, no CDATA, numbers in one spelling.
#include <clocale>

#include <charconv>
#include <cstdlib>
#include <utility>

#include <plist/plist.h>

#include "SorrelFramework/Platform/PropertyListForms.hpp"
#include "SorrelFramework/Platform/Text.hpp"
#include "SorrelFramework/Platform/XMLText.hpp"

namespace sorrel {

namespace {

/// Keys of one dictionary: libplist finds keys in a hash table of a fixed size, so that more of them would
/// take the square of the time.
constexpr std::size_t kKeyLimit = 200'000;

enum class Element { Plist, Dictionary, Array, Key, String, Data, Date, Integer, Real, True, False };

constexpr std::pair<std::string_view, Element> kElements[] = {
    {"plist", Element::Plist}, {"dict", Element::Dictionary}, {"array", Element::Array},
    {"key", Element::Key},     {"string", Element::String},   {"data", Element::Data},
    {"date", Element::Date},   {"integer", Element::Integer}, {"real", Element::Real},
    {"true", Element::True},   {"false", Element::False},
};

std::optional<Element> elementNamed(std::string_view name) {
  for (const auto& [text, element] : kElements) {
    if (text == name) return element;
  }
  return std::nullopt;
}

std::string_view nameOf(Element element) { return kElements[static_cast<std::size_t>(element)].first; }

bool isContainer(Element element) { return element <= Element::Array; }

std::optional<std::string> plainInteger(std::string_view text) {
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) text.remove_prefix(1);
  const bool isHex = text.starts_with("0x") || text.starts_with("0X");
  if (isHex) text.remove_prefix(2);
  std::uint64_t magnitude = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), magnitude, isHex ? 16 : 10);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  if (isNegative && magnitude > std::uint64_t{1} << 63) return std::nullopt;
  return (isNegative && magnitude != 0 ? "-" : "") + std::to_string(magnitude);
}

std::optional<std::string> plainReal(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  if (text.starts_with('+') || text.find('(') != text.npos) return std::nullopt;
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return std::string(text);
}

/// "YYYY-MM-DDThh:mm:ssZ" with every field in its range.
std::optional<std::string> plainDate(std::string_view text) {
  static constexpr std::string_view kPattern = "0000-00-00T00:00:00Z";
  if (text.size() != kPattern.size()) return std::nullopt;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isDigit = text[i] >= '0' && text[i] <= '9';
    if (kPattern[i] == '0' ? !isDigit : text[i] != kPattern[i]) return std::nullopt;
  }
  const auto field = [text](std::size_t at) { return (text[at] - '0') * 10 + (text[at + 1] - '0'); };
  if (field(5) < 1 || field(5) > 12 || field(8) < 1 || field(8) > 31) return std::nullopt;
  if (field(11) > 23 || field(14) > 59 || field(17) > 59) return std::nullopt;
  return std::string(text);
}

std::optional<std::string> plainBase64(std::string_view text) {
  std::string plain;
  std::size_t padding = 0;
  for (const char c : text) {
    if (isXMLSpace(c)) continue;
    const bool isDigit =
        (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
    if (c == '=' ? ++padding > 2 : !isDigit || padding > 0) return std::nullopt;
    plain.push_back(c);
  }
  return plain.size() % 4 == 0 ? std::optional(plain) : std::nullopt;
}

/// The content of a scalar element in the one spelling that libplist gets.
std::optional<std::string> plainContent(Element element, std::string_view content) {
  switch (element) {
    case Element::Integer:
      return plainInteger(trimmedXMLSpace(content));
    case Element::Real:
      return plainReal(trimmedXMLSpace(content));
    case Element::Date:
      return plainDate(trimmedXMLSpace(content));
    case Element::Data:
      return plainBase64(content);
    case Element::True:
    case Element::False:
      return trimmedXMLSpace(content).empty() ? std::optional(std::string()) : std::nullopt;
    default:
      return escapedXML(content);
  }
}

/// Goes over a document once and writes the plain copy.
class XMLGuard {
 public:
  explicit XMLGuard(std::string_view text) : scanner_(text) {}

  std::optional<std::string> plainCopy() {
    if (!scanner_.skipProlog()) return std::nullopt;
    do {
      if (!step()) return std::nullopt;
    } while (!open_.empty());
    return std::move(out_);
  }

 private:
  struct Open {
    Element element;
    std::size_t children = 0;  // keys and values, each counted as one
  };

  bool step() {
    if (!scanner_.skipToTag()) return false;
    const std::optional<XMLScanner::Tag> tag = scanner_.tag();
    if (!tag.has_value()) return false;
    const std::optional<Element> element = elementNamed(tag->name);
    if (!element.has_value()) return false;
    if (tag->isEnd) return close(*element);
    if (!admit(*element)) return false;
    if (!isContainer(*element)) return copyScalar(*element, tag->isEmpty);
    open_.push_back({*element});
    out_.append("<").append(nameOf(*element)).append(">");
    return tag->isEmpty ? close(*element) : true;
  }

  /// Whether an element may begin here, by its kind, its parent and the limits.
  bool admit(Element element) {
    if (++nodes_ > kPropertyListNodeLimit) return false;
    if (open_.empty()) return element != Element::Key;
    if (element == Element::Plist) return false;
    Open& parent = open_.back();
    const std::size_t position = parent.children++;
    const bool wantsKey = parent.element == Element::Dictionary && position % 2 == 0;
    if (wantsKey != (element == Element::Key)) return false;
    if (parent.element == Element::Dictionary && position > 2 * kKeyLimit) return false;
    if (parent.element == Element::Plist && position > 0) return false;
    const std::size_t levels = open_.size() - (open_.front().element == Element::Plist ? 1 : 0);
    return !isContainer(element) || levels < kPropertyListDepthLimit;
  }

  bool close(Element element) {
    if (open_.empty() || open_.back().element != element) return false;
    const std::size_t children = open_.back().children;
    if (element == Element::Plist && children == 0) return false;
    if (element == Element::Dictionary && children % 2 != 0) return false;
    open_.pop_back();
    out_.append("</").append(nameOf(element)).append(">");
    return true;
  }

  bool copyScalar(Element element, bool isEmpty) {
    std::string content;
    if (!isEmpty && !scanner_.content(nameOf(element), content)) return false;
    const std::optional<std::string> plain = plainContent(element, content);
    if (!plain.has_value()) return false;
    if (element == Element::True || element == Element::False) {
      out_.append("<").append(nameOf(element)).append("/>");
    } else {
      out_.append("<").append(nameOf(element)).append(">").append(*plain);
      out_.append("</").append(nameOf(element)).append(">");
    }
    return true;
  }

  XMLScanner scanner_;
  std::vector<Open> open_;
  std::size_t nodes_ = 0;
  std::string out_;
};

/// The root of a tree of libplist; only a root is ever owned, as its nodes belong to their parents.
class Root {
 public:
  explicit Root(plist_t node) : node_(node) {}
  ~Root() { plist_free(node_); }
  Root(const Root&) = delete;
  Root& operator=(const Root&) = delete;
  [[nodiscard]] plist_t get() const { return node_; }

 private:
  plist_t node_;
};

/// libplist reads reals by the locale of the calling thread, where a comma may stand for the point.
class PlainLocale {
 public:
  PlainLocale() : plain_(::newlocale(LC_ALL_MASK, "C", nullptr)), before_(::uselocale(plain_)) {}
  ~PlainLocale() {
    ::uselocale(before_);
    ::freelocale(plain_);
  }
  PlainLocale(const PlainLocale&) = delete;
  PlainLocale& operator=(const PlainLocale&) = delete;

 private:
  locale_t plain_;
  locale_t before_;
};

/// A number or a date by way of the binary form, which has room for all of them: the getters give integers
/// without their sign, and dates in 32 bits.
std::optional<PropertyList> throughBinary(plist_t node) {
  char* bytes = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(node, &bytes, &length);
  if (bytes == nullptr) return std::nullopt;
  std::optional<PropertyList> value = propertylist::parseBinary({bytes, length});
  plist_to_bin_free(bytes);
  return value;
}

std::optional<PropertyList> converted(plist_t node);

std::optional<PropertyList> convertedArray(plist_t node) {
  PropertyList::Array values;
  values.reserve(plist_array_get_size(node));
  plist_array_iter iterator = nullptr;
  plist_array_new_iter(node, &iterator);
  bool isWhole = true;
  for (plist_t item = nullptr;; item = nullptr) {
    plist_array_next_item(node, iterator, &item);
    if (item == nullptr) break;
    std::optional<PropertyList> value = converted(item);
    isWhole = value.has_value();
    if (!isWhole) break;
    values.push_back(std::move(*value));
  }
  std::free(iterator);
  return isWhole ? std::optional<PropertyList>(std::move(values)) : std::nullopt;
}

std::optional<PropertyList> convertedDictionary(plist_t node) {
  PropertyListDictionary values;
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(node, &iterator);
  bool isWhole = true;
  for (plist_t item = nullptr;; item = nullptr) {
    char* key = nullptr;
    plist_dict_next_item(node, iterator, &key, &item);
    if (item == nullptr || key == nullptr) break;
    std::optional<PropertyList> value = converted(item);
    isWhole = value.has_value();
    if (isWhole) values.set(key, std::move(*value));
    std::free(key);
    if (!isWhole) break;
  }
  std::free(iterator);
  return isWhole ? std::optional<PropertyList>(std::move(values)) : std::nullopt;
}

/// Recurses no deeper than the guard let pass.
std::optional<PropertyList> converted(plist_t node) {
  std::uint64_t length = 0;
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      std::uint8_t flag = 0;
      plist_get_bool_val(node, &flag);
      return PropertyList(flag != 0);
    }
    case PLIST_REAL: {
      double real = 0;
      plist_get_real_val(node, &real);
      return PropertyList(real);
    }
    case PLIST_STRING: {
      const char* text = plist_get_string_ptr(node, &length);
      return PropertyList(text == nullptr ? std::string() : std::string(text, length));
    }
    case PLIST_DATA: {
      const char* bytes = plist_get_data_ptr(node, &length);
      return PropertyList(bytes == nullptr ? PropertyList::Data()
                                           : PropertyList::Data(bytes, bytes + length));
    }
    case PLIST_UINT:
    case PLIST_DATE:
      return throughBinary(node);
    case PLIST_ARRAY:
      return convertedArray(node);
    case PLIST_DICT:
      return convertedDictionary(node);
    default:
      return std::nullopt;
  }
}

}  // namespace

std::optional<PropertyList> propertylist::parseXML(std::string_view text) {
  if (text.find('\0') != text.npos || !isValidUTF8(text)) return std::nullopt;
  const std::optional<std::string> plain = XMLGuard(text).plainCopy();
  if (!plain.has_value()) return std::nullopt;
  const PlainLocale locale;
  plist_t node = nullptr;
  plist_from_xml(plain->data(), static_cast<std::uint32_t>(plain->size()), &node);
  if (node == nullptr) return std::nullopt;
  const Root root(node);
  return converted(root.get());
}

}  // namespace sorrel
