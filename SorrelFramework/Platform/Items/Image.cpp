#include "SorrelFramework/Platform/Items/Image.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {
namespace {

constexpr std::array<std::string_view, 5> kResourceTypes = {"png", "svg", "icns", "tiff", ""};

// The part of the freedesktop.org icon theme rules that needs no index file: the fallback theme of all
// others, the theme of most desktops, and their folders.
constexpr std::array<std::string_view, 2> kThemes = {"hicolor", "Adwaita"};
constexpr std::array<std::string_view, 14> kSizes = {"scalable", "symbolic", "16x16",   "22x22",  "24x24",
                                                     "32x32",    "36x36",    "48x48",   "64x64",  "72x72",
                                                     "96x96",    "128x128",  "256x256", "512x512"};
constexpr std::array<std::string_view, 12> kContexts = {"actions", "apps",       "categories", "devices",
                                                        "emblems", "legacy",     "mimetypes",  "places",
                                                        "status",  "animations", "emotes",     "ui"};
constexpr std::array<std::string_view, 3> kIconTypes = {".png", ".svg", ".xpm"};

bool isFile(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

bool isFolder(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::string environment(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

/// The XDG data folders, the user's first, separated by ":".
std::string dataFolders(const Host& host) {
  std::string own = environment("XDG_DATA_HOME");
  if (!own.starts_with('/')) own = host.home() + "/.local/share";
  std::string shared = environment("XDG_DATA_DIRS");
  if (shared.empty()) shared = "/usr/local/share:/usr/share";
  return own + ':' + shared;
}

template <class Visit>
void forEachFolder(std::string_view folders, Visit visit) {
  while (!folders.empty()) {
    const std::size_t end = std::min(folders.find(':'), folders.size());
    if (folders.starts_with('/')) visit(std::string(folders.substr(0, end)));
    folders.remove_prefix(std::min(end + 1, folders.size()));
  }
}

void addThemeFolders(const std::string& theme, std::vector<std::string>& folders) {
  if (!isFolder(theme)) return;
  for (const std::string_view size : kSizes) {
    const std::string sized = theme + '/' + std::string(size);
    if (!isFolder(sized)) continue;
    for (const std::string_view context : kContexts) {
      std::string folder = sized + '/' + std::string(context) + '/';
      if (isFolder(folder)) folders.push_back(std::move(folder));
    }
  }
}

/// Every existing folder that may hold a themed icon, with a trailing slash.
std::vector<std::string> iconFolders(std::string_view data) {
  std::vector<std::string> folders;
  for (const std::string_view theme : kThemes) {
    forEachFolder(data, [&](const std::string& folder) {
      addThemeFolders(folder + "/icons/" + std::string(theme), folders);
    });
  }
  forEachFolder(data, [&folders](const std::string& folder) {
    if (isFolder(folder + "/pixmaps")) folders.push_back(folder + "/pixmaps/");
  });
  return folders;
}

bool holdsIcon(const std::vector<std::string>& folders, const std::string& name) {
  for (const std::string& folder : folders) {
    for (const std::string_view type : kIconTypes) {
      if (isFile(folder + name + std::string(type))) return true;
    }
  }
  return false;
}

/// True if the desktop's icons include `name`. Icons are installed rarely and queried often, so each result
/// is cached as long as the process uses the same data folders.
bool isThemeIcon(const std::string& data, const std::string& name) {
  static std::mutex mutex;
  static std::string searched;
  static std::vector<std::string> folders;
  static std::unordered_map<std::string, bool> known;
  const std::lock_guard lock(mutex);
  if (searched != data) {
    searched = data;
    folders = iconFolders(data);
    known.clear();
  }
  const auto [entry, isNew] = known.try_emplace(name, false);
  if (isNew) entry->second = holdsIcon(folders, name);
  return entry->second;
}

bool isResource(const Host& host, std::string_view name) {
  for (const std::string_view type : kResourceTypes) {
    const auto path = host.resourcePath(name, type);
    if (path && isFile(*path)) return true;
  }
  return false;
}

}  // namespace

Image Image::named(std::string_view name) {
  return name.find('/') == std::string_view::npos ? Image(SharedText(name)) : Image();
}

Image Image::lookUp(std::string_view name) {
  // A name is not a path: it must not lead out of the folders of pictures.
  if (name.empty() || name.find_first_of(std::string_view("/\0", 2)) != std::string_view::npos) return {};
  const Host& host = Host::current();
  if (isResource(host, name) || isThemeIcon(dataFolders(host), std::string(name))) return named(name);
  return {};
}

Image Image::iconOf(const URL& url) {
  return Image(url.isEmptyPath() ? SharedText(url.absoluteString()) : url.sharedText());
}

std::string Image::filePath() const {
  if (kind() != Kind::FileIcon) return {};
  return URL::fromEncodedPieces(name(), {}).path();
}

}  // namespace sorrel
