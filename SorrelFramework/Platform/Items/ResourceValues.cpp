#include "SorrelFramework/Platform/Items/ResourceValues.hpp"

#include <strings.h>

#include <utility>

#include "SorrelFramework/Platform/Items/ContentType.hpp"
#include "SorrelFramework/Platform/Items/DesktopEntry.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"

namespace sorrel {
namespace {

/// Drops the extension of an application bundle, which the desktop hides.
std::string_view withoutBundleExtension(std::string_view name, const FileStatus& status) {
  constexpr std::string_view application = ".app";
  if (status.isDirectory() && name.size() > application.size() &&
      ::strncasecmp(name.data() + name.size() - application.size(), application.data(), application.size()) ==
          0) {
    name.remove_suffix(application.size());
  }
  return name;
}

/// The name that the desktop shows: a desktop entry of Linux has one of its own. Bytes that are not UTF-8
/// become U+FFFD.
std::string shownName(const URL& url, std::string_view name, const FileStatus& status) {
  if (status.isRegularFile() && isDesktopEntryName(name) &&
      Host::current().layout() == Host::Layout::LinuxDesktop) {
    if (auto own = desktopEntryName(url.path())) return std::move(*own);
  }
  name = withoutBundleExtension(name, status);
  return isValidUTF8(name) ? std::string(name) : replacingInvalidUTF8(name);
}

}  // namespace

std::optional<ResourceValues> resourceValues(const URL& url, ResourceKeys keys) {
  if (!url.isFileURL()) return std::nullopt;
  const std::string path = url.path();
  const auto status = statusOf(path);
  if (!status) return std::nullopt;
  return resourceValues(url, keys, url.lastPathComponent(), *status);
}

ResourceValues resourceValues(const URL& url, ResourceKeys keys, std::string_view name,
                              const FileStatus& status) {
  ResourceValues values;
  if (keys.contains(NSURLLocalizedNameKey)) values.localizedName = shownName(url, name, status);
  if (keys.contains(NSURLFileSizeKey) && !status.isDirectory()) values.fileSize = status.size;
  if (keys.contains(NSURLEffectiveIconKey)) values.effectiveIcon = Image::iconOf(url);
  if (keys.contains(NSURLIsDirectoryKey)) values.isDirectory = status.isDirectory();
  if (keys.contains(NSURLIsPackageKey)) values.isPackage = isPackage(name, status);
  if (keys.contains(NSURLIsRegularFileKey)) values.isRegularFile = status.isRegularFile();
  if (keys.contains(NSURLIsHiddenKey)) values.isHidden = isHiddenName(name);
  if (keys.contains(NSURLCreationDateKey)) values.creationDate = status.created;
  if (keys.contains(NSURLContentModificationDateKey)) values.contentModificationDate = status.modified;
  if (keys.contains(NSURLLocalizedTypeDescriptionKey)) {
    values.localizedTypeDescription = localizedTypeDescription(name, status.isDirectory());
  }
  if (keys.contains(NSURLPathKey)) values.path = url.path();
  return values;
}

bool isPackage(std::string_view name, const FileStatus& status) {
  return status.isDirectory() && isPackageName(name);
}

bool isHiddenName(std::string_view name) { return name.starts_with('.'); }

}  // namespace sorrel
