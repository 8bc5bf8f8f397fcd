#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sorrel {

// Content types as macOS names them ("public.png"), from the name alone: the extension is looked up,
// regardless of letter case, in a table of its own, then in the desktop's MIME database. No file is ever
// opened. All functions are safe on any thread.

/// The type of the item called `path`. A folder is a "public.folder" unless it is a package; a file with an
/// unknown extension, or none, is "public.data".
[[nodiscard]] std::string contentType(std::string_view path, bool isDirectory);
/// The same for the item on disk: nothing ("") if lstat fails, "public.symlink" for a link, and
/// "public.unix-executable" for a file without extension that has an execute bit.
[[nodiscard]] std::string contentType(std::string_view path);

/// The type and all types it conforms to: the type itself, then its parents depth first in their declared
/// order, each once.
[[nodiscard]] std::vector<std::string> contentTypeTree(std::string_view path, bool isDirectory);
/// The same for the item on disk; empty if lstat fails.
[[nodiscard]] std::vector<std::string> contentTypeTree(std::string_view path);

/// True if a directory of this name is a package: a folder that is shown as one item. Case-insensitive. A
/// plain file is never a package, so call it for directories only.
[[nodiscard]] bool isPackageName(std::string_view name);

/// MIME type by the name, "application/octet-stream" if it is unknown, "inode/directory" for a folder.
[[nodiscard]] std::string mimeType(std::string_view path, bool isDirectory);

/// The type in words, in the user's language: "JPEG image", "folder".
[[nodiscard]] std::string localizedTypeDescription(std::string_view path, bool isDirectory);

}  // namespace sorrel
