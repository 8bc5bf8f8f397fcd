#include "SorrelFramework/Platform/DesktopEntry.hpp"

#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <memory>

#include "SorrelFramework/Platform/FileDescriptor.hpp"
#include "SorrelFramework/Platform/FileStatus.hpp"
#include "SorrelFramework/Platform/Text.hpp"

namespace sorrel {
namespace {

constexpr std::size_t kMostBytes = std::size_t{64} * 1024;

/// The whole content of a short regular file.
std::optional<std::string> shortFile(const std::string& path) {
  if (path.find('\0') != std::string::npos) return std::nullopt;
  // O_NONBLOCK: what was a file a moment ago may be a FIFO now, and to open that would wait for its other
  // end.
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  const auto status = file.isOpen() ? statusOf(file.get()) : std::nullopt;
  if (!status || !status->isRegularFile()) return std::nullopt;
  std::string bytes(kMostBytes + 1, '\0');
  std::size_t length = 0;
  while (length < bytes.size()) {
    const ssize_t got = ::read(file.get(), bytes.data() + length, bytes.size() - length);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    length += static_cast<std::size_t>(got);
  }
  if (length > kMostBytes) return std::nullopt;
  bytes.resize(length);
  return bytes;
}

}  // namespace

bool isDesktopEntryName(std::string_view name) { return name.ends_with(".desktop"); }

std::optional<std::string> desktopEntryName(const std::string& path) {
  const auto bytes = shortFile(path);
  if (!bytes) return std::nullopt;
  const std::unique_ptr<GKeyFile, decltype(&g_key_file_unref)> file(g_key_file_new(), &g_key_file_unref);
  // Every language is kept, as the one that is wanted is chosen below.
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
