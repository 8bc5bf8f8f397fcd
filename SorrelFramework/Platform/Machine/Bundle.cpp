#include "SorrelFramework/Platform/Machine/Bundle.hpp"

#include <dirent.h>
#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace sorrel {

namespace {

constexpr const char* kContents = "Contents";
constexpr const char* kResources = "Resources";
constexpr const char* kSupportFiles = "Support Files";
/// The first existing one is read.
constexpr const char* kInfoNames[] = {"Info-macos.plist", "Info.plist"};

bool isFolder(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// The names in a folder, in the order of their bytes, so that every file system gives the same result.
std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(::opendir(folder.c_str()), ::closedir);
  if (stream == nullptr) return names;
  while (const dirent* entry = ::readdir(stream.get())) names.emplace_back(entry->d_name);
  std::ranges::sort(names);
  return names;
}

/// The entry called `name`: the exact name, or else the first that differs in letter case only.
std::optional<std::string> entryNamed(const std::vector<std::string>& names, const char* name) {
  if (std::ranges::binary_search(names, name)) return name;
  const auto found = std::ranges::find_if(
      names, [name](const std::string& entry) { return ::strcasecmp(entry.c_str(), name) == 0; });
  return found == names.end() ? std::nullopt : std::optional(*found);
}

/// Path of the folder, or of the link, called `name` in `folder`.
std::optional<std::string> folderOrLink(const std::string& folder, const std::vector<std::string>& names,
                                        const char* name) {
  const std::optional<std::string> entry = entryNamed(names, name);
  if (!entry.has_value()) return std::nullopt;
  std::string path = folder + "/" + *entry;
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return std::nullopt;
  if (!S_ISDIR(status.st_mode) && !S_ISLNK(status.st_mode)) return std::nullopt;
  return path;
}

/// Path of the info property list in `folder`; "" if it has none.
std::string infoFileIn(const std::string& folder) {
  const std::vector<std::string> names = namesIn(folder);
  for (const char* name : kInfoNames) {
    if (const std::optional<std::string> entry = entryNamed(names, name)) return folder + "/" + *entry;
  }
  return {};
}

/// An application made for another device is wrapped: a folder "Wrapper", and a link to the bundle in it.
std::optional<std::string> wrappedInfoFile(const std::string& path, const std::vector<std::string>& names) {
  if (!folderOrLink(path, names, "Wrapper").has_value()) return std::nullopt;
  const std::optional<std::string> wrapped = folderOrLink(path, names, "WrappedBundle");
  if (!wrapped.has_value()) return std::nullopt;
  const std::string flat = infoFileIn(*wrapped);
  if (!flat.empty()) return flat;
  const std::optional<std::string> contents = folderOrLink(*wrapped, namesIn(*wrapped), kContents);
  return contents.has_value() ? infoFileIn(*contents) : std::string();
}

std::string infoFileOf(const std::string& path) {
  const std::vector<std::string> names = namesIn(path);
  if (const std::optional<std::string> wrapped = wrappedInfoFile(path, names)) return *wrapped;
  std::vector<const char*> layouts{kContents, kResources, kSupportFiles};
  if (path.ends_with(".framework")) std::swap(layouts[0], layouts[1]);
  for (const char* layout : layouts) {
    if (const std::optional<std::string> folder = folderOrLink(path, names, layout))
      return infoFileIn(*folder);
  }
  // A flat bundle; but the inner folder of another bundle is not a bundle of its own.
  const bool isInner =
      std::ranges::any_of(layouts, [&path](std::string_view layout) { return path.ends_with(layout); });
  return isInner ? std::string() : infoFileIn(path);
}

}  // namespace

std::optional<Bundle> Bundle::atPath(const std::string& path) {
  if (path.empty() || path.find('\0') != path.npos || !isFolder(path)) return std::nullopt;
  std::string plain = path;
  while (plain.size() > 1 && plain.ends_with('/')) plain.pop_back();
  return Bundle(std::move(plain));
}

std::optional<Bundle> Bundle::atURL(const URL& url) {
  return url.isFileURL() ? atPath(url.path()) : std::nullopt;
}

Bundle::Bundle(std::string path) : path_(std::move(path)), infoPath_(infoFileOf(path_)) {
  if (infoPath_.empty()) return;
  std::optional<PropertyList> list = readPropertyListFile(infoPath_);
  if (list.has_value() && list->asDictionary() != nullptr) info_ = std::move(*list->asDictionary());
}

std::optional<std::string> Bundle::bundleIdentifier() const {
  const PropertyList* identifier = info_.find("CFBundleIdentifier");
  if (identifier == nullptr || identifier->asString() == nullptr) return std::nullopt;
  return *identifier->asString();
}

}  // namespace sorrel
