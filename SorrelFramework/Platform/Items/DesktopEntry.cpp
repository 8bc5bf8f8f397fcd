#include "SorrelFramework/Platform/Items/DesktopEntry.hpp"

#include <glib.h>

#include <cstddef>
#include <memory>

#include "SorrelFramework/Platform/Files/FileBytes.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"

namespace sorrel {
namespace {

constexpr std::size_t kMostBytes = std::size_t{64} * 1024;

}  // namespace

bool isDesktopEntryName(std::string_view name) { return name.ends_with(".desktop"); }

std::optional<std::string> desktopEntryName(const std::string& path) {
  const auto bytes = readFileBytes(path, kMostBytes, LinkAtEnd::Refused);
  if (!bytes) return std::nullopt;
  const std::unique_ptr<GKeyFile, decltype(&g_key_file_unref)> file(g_key_file_new(), &g_key_file_unref);
  // All translations are kept, because the language is chosen below.
  if (g_key_file_load_from_data(file.get(), bytes->data(), bytes->size(), G_KEY_FILE_KEEP_TRANSLATIONS,
                                nullptr) == FALSE) {
    return std::nullopt;
  }
  const std::unique_ptr<char, decltype(&g_free)> name(
      g_key_file_get_locale_string(file.get(), G_KEY_FILE_DESKTOP_GROUP, G_KEY_FILE_DESKTOP_KEY_NAME, nullptr,
                                   nullptr),
      &g_free);
  if (!name || *name.get() == '\0' || !isValidUTF8(name.get())) return std::nullopt;
  return name.get();
}

}  // namespace sorrel
