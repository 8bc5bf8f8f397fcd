#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "SorrelFramework/Platform/Base/Date.hpp"

namespace sorrel::tools {

/// When an item was last opened, the newest of: the extended attribute in which macOS records it, also with
/// the prefixes "osx." and "user." that drivers and copies add; on this desktop the list of recently used
/// files and, for a program, its access time, if that is later than its last change and the mount maintains
/// access times. Nothing without any of these, as for most items. Links are not followed.
std::optional<Date> lastUse(const std::string& path);

/// The time in the bytes of com.apple.lastuseddate#PS: seconds and nanoseconds since 1970, eight bytes each,
/// little-endian. Nothing for any other number of bytes, for seconds that are 0 or beyond the year 9999, and
/// for nanoseconds of a full second or more.
std::optional<Date> lastUseInAttribute(std::string_view bytes);

}  // namespace sorrel::tools
