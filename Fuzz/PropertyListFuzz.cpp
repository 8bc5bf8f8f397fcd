// Any bytes as a property list: they give a value or nothing, and a value survives each writer and its
// reader.
#include "Fuzz/Require.hpp"
#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"

using namespace sorrel;
using sorrel::fuzz::require;

namespace {

void checkBinary(const PropertyList& list) {
  const std::optional<std::string> bytes = writePropertyListBinary(list);
  require(bytes.has_value(), "what was read can be written in binary");
  const std::optional<PropertyList> again = parsePropertyList(*bytes);
  require(again.has_value() && *again == list, "binary comes back the same");
}

/// XML has whole seconds and no UIDs, so the text is compared, not the value.
void checkXML(const PropertyList& list) {
  const std::optional<std::string> text = writePropertyListXML(list);
  if (!text.has_value()) return;
  const std::optional<PropertyList> again = parsePropertyList(*text);
  require(again.has_value(), "written XML can be read");
  require(writePropertyListXML(*again) == text, "XML comes back the same");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::optional<PropertyList> list = parsePropertyList(fuzz::textOf(data, size));
  if (!list.has_value()) return 0;
  const PropertyList copy = *list;
  require(copy == *list, "a copy is equal");
  checkBinary(*list);
  checkXML(*list);
  return 0;
}
