#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "SorrelFramework/Platform/Base/Date.hpp"

namespace sorrel::tools {

/// When an item was last opened, the newest of what is told by: the extended attribute in which macOS notes
/// it, also under the prefixes "osx." and "user." that drivers and copies give it; on this desktop the list
/// of recently used files and, for a program, the time of its last reading, if that came after its last
/// change and the mount keeps such times. Nothing if nobody tells, which is the case for most items. Links
/// are not followed.
std::optional<Date> lastUse(const std::string& path);

/// The moment in the bytes of com.apple.lastuseddate#PS: seconds and nanoseconds since 1970, eight bytes
/// each, the lowest first. Nothing for any other number of bytes, for no whole second after 1970, and for a
/// second that is none.
std::optional<Date> lastUseInAttribute(std::string_view bytes);

}  // namespace sorrel::tools
