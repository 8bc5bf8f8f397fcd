#include "Tools/ItemKind.hpp"

#include <algorithm>
#include <array>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>
#include <vector>

#include "SorrelFramework/Platform/Items/ContentType.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel::tools {
namespace {

constexpr std::size_t kRememberedKinds = 4096;

/// Types whose kind differs from the desktop's name for them; the first in an item's type tree counts.
struct KindRow {
  std::string_view type;
  std::string_view kind;
};
constexpr std::array<KindRow, 9> kKinds = {{
    {"com.apple.application-bundle", "Application"},
    {"com.apple.photos.library", "Photos Library"},
    {"public.disk-image", "Disk Image"},
    {"public.heic", "HEIF Image"},
    {"public.heif", "HEIF Image"},
    {"public.mpeg-4", "MPEG-4 movie"},
    {"public.mp3", "MP3 audio"},
    {"com.adobe.pdf", "PDF document"},
    {"com.pkware.zip-archive", "ZIP archive"},
}};

/// Types below public.image get the suffix "image": "Adobe DNG negative image".
std::string describedKind(const std::string& name, const std::vector<std::string>& tree) {
  std::string kind = localizedTypeDescription(name, false);
  const bool isImage = std::ranges::find(tree, "public.image") != tree.end();
  if (isImage && kind.find("image") == std::string::npos) kind += " image";
  return kind;
}

std::string kindOfExtension(const std::string& extension, bool isDirectory) {
  const std::string name = "item." + extension;
  const std::vector<std::string> tree = contentTypeTree(name, isDirectory);
  for (const std::string& type : tree) {
    const auto row = std::ranges::find(kKinds, type, &KindRow::type);
    if (row != kKinds.end()) return std::string(row->kind);
  }
  if (isDirectory) return isPackageName(name) ? "Package" : "Folder";
  return describedKind(name, tree);
}

}  // namespace

std::string itemKind(std::string_view name, bool isDirectory) {
  const std::string_view extension = pathExtension(name);
  if (extension.empty()) return isDirectory ? "Folder" : "Document";
  const std::string key = (isDirectory ? "/" : "") + std::string(extension);
  static std::shared_mutex mutex;
  static std::unordered_map<std::string, std::string> known;
  {
    const std::shared_lock lock(mutex);
    const auto found = known.find(key);
    if (found != known.end()) return found->second;
  }
  std::string kind = kindOfExtension(std::string(extension), isDirectory);
  const std::unique_lock lock(mutex);
  if (known.size() >= kRememberedKinds) known.clear();
  known.emplace(key, kind);
  return kind;
}

}  // namespace sorrel::tools
