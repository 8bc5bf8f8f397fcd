#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace sorrel {

/// How a link in the last component of a path is treated; links before it are always followed.
enum class LinkAtEnd { Followed, Refused };

/// The whole content of a regular file. Nothing if it is missing, unreadable, longer than `limit` bytes, or
/// anything but a regular file: a FIFO, a socket or a device is never read. Any thread.
[[nodiscard]] std::optional<std::string> readFileBytes(const std::string& path, std::size_t limit,
                                                       LinkAtEnd linkAtEnd = LinkAtEnd::Followed);

/// Replaces the content of `path` in one step: a temporary file beside it with the mode and the owner of the
/// old one, synchronised with the disk, then renamed over it. A new file gets the mode 0666 minus the umask.
/// False if any step fails, and for a path that is a link, a folder or a device; the old file is untouched
/// then, and no temporary file remains. Any thread.
[[nodiscard]] bool writeFileAtomically(const std::string& path, std::string_view bytes);

}  // namespace sorrel
