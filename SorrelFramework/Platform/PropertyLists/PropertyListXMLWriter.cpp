#include <algorithm>
#include <charconv>
#include <cmath>

#include "SorrelFramework/Platform/PropertyLists/PropertyListForms.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"
#include "SorrelFramework/Platform/Text/XMLText.hpp"

namespace sorrel {

namespace {

constexpr std::string_view kHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
constexpr std::string_view kFoot = "</plist>\n";

/// Lines of data are filled up to this column, with a tab counted as eight, and indented by at most eight
/// tabs.
constexpr std::size_t kDataColumns = 76;
constexpr std::size_t kDataIndent = 8;

bool isXMLText(std::string_view text) { return text.find('\0') == text.npos && isValidUTF8(text); }

std::string base64(const PropertyList::Data& data, std::size_t start, std::size_t end) {
  static constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (std::size_t i = start; i < end; i += 3) {
    std::uint32_t group = 0;
    for (std::size_t k = 0; k < 3; ++k) group = group << 8 | (i + k < end ? data[i + k] : 0U);
    for (std::size_t k = 0; k < 4; ++k)
      out.push_back(i + k <= end ? kDigits[group >> (18 - 6 * k) & 0x3F] : '=');
  }
  return out;
}

std::string realText(double real) {
  if (std::isnan(real)) return "nan";
  if (std::isinf(real)) return real > 0 ? "+infinity" : "-infinity";
  char buffer[32];
  return {buffer, std::to_chars(buffer, std::end(buffer), real).ptr};
}

class XMLWriter {
 public:
  std::optional<std::string> write(const PropertyList& list) {
    out_ = kHead;
    if (!value(list, 0)) return std::nullopt;
    out_ += kFoot;
    return std::move(out_);
  }

 private:
  /// `level` counts the containers around the value, and is also the number of tabs.
  bool value(const PropertyList& list, std::size_t level) {
    switch (list.type()) {
      case PropertyList::Type::Boolean:
        line(level, *list.asBoolean() ? "<true/>" : "<false/>");
        return true;
      case PropertyList::Type::Integer:
        element(level, "integer", integerText(list));
        return true;
      case PropertyList::Type::Real:
        element(level, "real", realText(*list.asReal()));
        return true;
      case PropertyList::Type::String:
        if (!isXMLText(*list.asString())) return false;
        element(level, "string", escapedXML(*list.asString()));
        return true;
      case PropertyList::Type::Data:
        data(*list.asData(), level);
        return true;
      case PropertyList::Type::Date:
        return date(*list.asDate(), level);
      case PropertyList::Type::UID:
        return dictionary({{"CF$UID", PropertyList(list.asUID()->value)}}, level);
      case PropertyList::Type::Array:
        return array(*list.asArray(), level);
      case PropertyList::Type::Dictionary:
        return dictionary(*list.asDictionary(), level);
    }
    return false;
  }

  static std::string integerText(const PropertyList& list) {
    const std::optional<std::int64_t> number = list.asInteger();
    return number.has_value() ? std::to_string(*number) : std::to_string(*list.asUnsigned());
  }

  bool date(Date date, std::size_t level) {
    const std::optional<std::string> text = isoText(date);
    if (text.has_value()) element(level, "date", *text);
    return text.has_value();
  }

  void data(const PropertyList::Data& data, std::size_t level) {
    const std::size_t indent = std::min(level, kDataIndent);
    const std::size_t bytes = (kDataColumns - 8 * indent) / 4 * 3;
    line(level, "<data>");
    for (std::size_t start = 0; start < data.size(); start += bytes)
      line(indent, base64(data, start, std::min(start + bytes, data.size())));
    line(level, "</data>");
  }

  bool array(const PropertyList::Array& values, std::size_t level) {
    if (level >= kPropertyListDepthLimit) return false;
    if (values.empty()) {
      line(level, "<array/>");
      return true;
    }
    line(level, "<array>");
    for (const PropertyList& item : values) {
      if (!value(item, level + 1)) return false;
    }
    line(level, "</array>");
    return true;
  }

  bool dictionary(const PropertyListDictionary& values, std::size_t level) {
    if (level >= kPropertyListDepthLimit) return false;
    if (values.empty()) {
      line(level, "<dict/>");
      return true;
    }
    std::vector<const PropertyListDictionary::Entry*> sorted;
    for (const auto& entry : values) sorted.push_back(&entry);
    std::ranges::sort(sorted, {}, [](const auto* entry) { return std::string_view(entry->key); });
    line(level, "<dict>");
    for (const auto* entry : sorted) {
      if (!isXMLText(entry->key)) return false;
      element(level + 1, "key", escapedXML(entry->key));
      if (!value(entry->value, level + 1)) return false;
    }
    line(level, "</dict>");
    return true;
  }

  void line(std::size_t level, std::string_view text) { out_.append(level, '\t').append(text).append("\n"); }

  void element(std::size_t level, std::string_view name, std::string_view content) {
    out_.append(level, '\t').append("<").append(name).append(">").append(content);
    out_.append("</").append(name).append(">\n");
  }

  std::string out_;
};

}  // namespace

std::optional<std::string> writePropertyListXML(const PropertyList& list) { return XMLWriter().write(list); }

}  // namespace sorrel
