#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "SorrelFramework/Platform/Base/Date.hpp"
#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Items/Image.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {

/// The properties of an item that can be requested.
enum ResourceKey : std::uint32_t {
  NSURLLocalizedNameKey = 1U << 0U,
  NSURLFileSizeKey = 1U << 1U,
  NSURLEffectiveIconKey = 1U << 2U,
  NSURLIsDirectoryKey = 1U << 3U,
  NSURLIsPackageKey = 1U << 4U,
  NSURLIsRegularFileKey = 1U << 5U,
  NSURLIsHiddenKey = 1U << 6U,
  NSURLCreationDateKey = 1U << 7U,
  NSURLContentModificationDateKey = 1U << 8U,
  NSURLLocalizedTypeDescriptionKey = 1U << 9U,
  NSURLPathKey = 1U << 10U,
};

/// A set of resource keys.
class ResourceKeys {
 public:
  constexpr ResourceKeys() = default;
  constexpr ResourceKeys(ResourceKey key) : bits_(key) {}
  [[nodiscard]] constexpr bool contains(ResourceKey key) const { return (bits_ & key) != 0; }
  friend constexpr ResourceKeys operator|(ResourceKeys a, ResourceKeys b) {
    return ResourceKeys(a.bits_ | b.bits_);
  }
  friend constexpr bool operator==(ResourceKeys, ResourceKeys) = default;

 private:
  explicit constexpr ResourceKeys(std::uint32_t bits) : bits_(bits) {}
  std::uint32_t bits_ = 0;
};
constexpr ResourceKeys operator|(ResourceKey a, ResourceKey b) { return ResourceKeys(a) | ResourceKeys(b); }

/// The values of the requested keys. A key that was not requested is absent, and so is a value that the item
/// does not have. All describe the item itself, never the target of a link.
struct ResourceValues {
  /// As the desktop shows it; always valid UTF-8. A *.desktop file of Linux is opened for it.
  std::optional<std::string> localizedName;
  std::optional<std::int64_t> fileSize;  ///< bytes; absent for folders
  std::optional<Image> effectiveIcon;
  std::optional<bool> isDirectory;
  std::optional<bool> isPackage;
  std::optional<bool> isRegularFile;
  std::optional<bool> isHidden;
  std::optional<Date> creationDate;
  std::optional<Date> contentModificationDate;
  std::optional<std::string> localizedTypeDescription;
  std::optional<std::string> path;  ///< without a trailing slash
};

/// Nothing if the item can't be reached.
std::optional<ResourceValues> resourceValues(const URL& url, ResourceKeys keys);
/// The same for an item whose name and status are already known. `name` is its last path component.
ResourceValues resourceValues(const URL& url, ResourceKeys keys, std::string_view name,
                              const FileStatus& status);

/// True for a folder that the desktop shows as one item, such as an application bundle.
bool isPackage(std::string_view name, const FileStatus& status);
/// True for a name that begins with a dot.
bool isHiddenName(std::string_view name);

}  // namespace sorrel
