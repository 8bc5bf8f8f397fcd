#pragma once

#include <optional>
#include <string>

#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {

/// A folder interpreted as a bundle (an application, a framework, a plug-in): the folder and its info
/// dictionary.
class Bundle {
 public:
  /// Nothing unless `path` is an existing folder (or a link to one). Any folder is accepted: without a
  /// readable Info.plist the info dictionary is empty.
  [[nodiscard]] static std::optional<Bundle> atPath(const std::string& path);
  [[nodiscard]] static std::optional<Bundle> atURL(const URL& url);

  [[nodiscard]] const std::string& path() const noexcept { return path_; }
  /// Path of the info property list; "" if there is none.
  [[nodiscard]] const std::string& infoPath() const noexcept { return infoPath_; }
  [[nodiscard]] const PropertyListDictionary& infoDictionary() const noexcept { return info_; }
  /// The text under "CFBundleIdentifier"; nothing if it is missing or not a text.
  [[nodiscard]] std::optional<std::string> bundleIdentifier() const;

 private:
  explicit Bundle(std::string path);

  std::string path_;
  std::string infoPath_;
  PropertyListDictionary info_;
};

}  // namespace sorrel
