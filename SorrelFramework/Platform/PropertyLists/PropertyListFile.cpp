#include "SorrelFramework/Platform/Files/FileBytes.hpp"
#include "SorrelFramework/Platform/PropertyLists/PropertyListForms.hpp"
#include "SorrelFramework/Platform/Text/UTF.hpp"
#include "SorrelFramework/Platform/Text/XMLText.hpp"

namespace sorrel {

namespace {

constexpr std::string_view kUTF8Mark = "\xEF\xBB\xBF";
constexpr std::string_view kBigEndianMark = "\xFE\xFF";
constexpr std::string_view kLittleEndianMark = "\xFF\xFE";

std::optional<std::string> utf8FromMarkedUTF16(std::string_view bytes) {
  const std::size_t high = bytes.starts_with(kBigEndianMark) ? 0 : 1;
  bytes.remove_prefix(kBigEndianMark.size());
  if (bytes.size() % 2 != 0) return std::nullopt;
  std::u16string units(bytes.size() / 2, u'\0');
  for (std::size_t i = 0; i < units.size(); ++i) {
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(bytes[2 * i + k]); };
    units[i] = static_cast<char16_t>(byte(high) << 8 | byte(1 - high));
  }
  return utf8FromUTF16(units);
}

std::optional<PropertyList> parseText(std::string_view text) {
  if (trimmedXMLSpace(text).starts_with('<')) {
    if (std::optional<PropertyList> list = propertylist::parseXML(text)) return list;
  }
  // Old-style data begins with "<" too.
  return propertylist::parseOldStyle(text);
}

}  // namespace

std::optional<PropertyList> parsePropertyList(std::string_view bytes) {
  if (bytes.empty() || bytes.size() > kPropertyListByteLimit) return std::nullopt;
  if (bytes.starts_with("bplist0")) return propertylist::parseBinary(bytes);
  if (bytes.starts_with(kBigEndianMark) || bytes.starts_with(kLittleEndianMark)) {
    const std::optional<std::string> text = utf8FromMarkedUTF16(bytes);
    return text.has_value() ? parseText(*text) : std::nullopt;
  }
  if (bytes.starts_with(kUTF8Mark)) bytes.remove_prefix(kUTF8Mark.size());
  return parseText(bytes);
}

std::optional<PropertyList> readPropertyListFile(const std::string& path) {
  const std::optional<std::string> bytes = readFileBytes(path, kPropertyListByteLimit);
  return bytes.has_value() ? parsePropertyList(*bytes) : std::nullopt;
}

bool writePropertyListFile(const std::string& path, const PropertyList& list, PropertyListFormat format) {
  const std::optional<std::string> bytes =
      format == PropertyListFormat::XML ? writePropertyListXML(list) : writePropertyListBinary(list);
  return bytes.has_value() && writeFileAtomically(path, *bytes);
}

}  // namespace sorrel
