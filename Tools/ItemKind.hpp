#pragma once

#include <string>
#include <string_view>

namespace sorrel::tools {

/// The kind of an item in English words, as in kMDItemKind: "JPEG image", "HEIF Image", "Disk Image", "Photos
/// Library", "Application", "Folder". Determined by the extension alone; an item without one is a "Document"
/// or a "Folder". Any thread.
std::string itemKind(std::string_view name, bool isDirectory);

}  // namespace sorrel::tools
