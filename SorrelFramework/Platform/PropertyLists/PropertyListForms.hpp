#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"

/// The readers of the individual forms, called by parsePropertyList(). Each returns nothing for damaged bytes
/// and for a list that exceeds the limits of PropertyList.hpp.
namespace sorrel::propertylist {

/// Everything that begins with "bplist0".
[[nodiscard]] std::optional<PropertyList> parseBinary(std::string_view bytes);

/// XML in UTF-8 without a byte order mark.
[[nodiscard]] std::optional<PropertyList> parseXML(std::string_view text);

/// Old-style text, or a file of "key = value;" lines without braces, in UTF-8. All scalars are texts or data.
[[nodiscard]] std::optional<PropertyList> parseOldStyle(std::string_view text);

}  // namespace sorrel::propertylist
