#include "SorrelFramework/Platform/Machine/Host.hpp"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Machine/UserDirectories.hpp"
#include "SorrelFramework/Platform/Machine/VolumePath.hpp"

namespace sorrel {
namespace {

/// A folder below the home and the variable that may move it: the XDG base directories.
struct XDGFolder {
  const char* variable;
  std::string_view belowHome;
};
constexpr std::array<XDGFolder, 4> kXDGFolders = {{
    {"XDG_CACHE_HOME", ".cache"},
    {"XDG_CONFIG_HOME", ".config"},
    {"XDG_DATA_HOME", ".local/share"},
    {"XDG_STATE_HOME", ".local/state"},
}};

std::string withoutTrailingSlashes(std::string path) {
  while (!path.empty() && path.back() == '/') path.pop_back();
  return path;
}

std::optional<passwd> passwordEntry(uid_t uid, std::vector<char>& buffer) {
  buffer.resize(1024);
  passwd entry{};
  passwd* found = nullptr;
  while (::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) == ERANGE)
    buffer.resize(buffer.size() * 2);
  if (found == nullptr) return std::nullopt;
  return entry;
}

std::optional<std::string> passwordName(uid_t uid) {
  std::vector<char> buffer;
  const auto entry = passwordEntry(uid, buffer);
  return entry ? std::optional<std::string>(entry->pw_name) : std::nullopt;
}

std::optional<uid_t> ownerOf(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return std::nullopt;
  return status.st_uid;
}

bool exists(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

bool isProgram(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

/// The owners of the folders Users/NAME.
std::map<uid_t, std::string> ownersOfHomes(const std::string& homes) {
  std::map<uid_t, std::string> owners;
  for (const std::string& name : namesIn(homes)) {
    if (name == "Shared") continue;
    if (const auto owner = ownerOf(std::string(homes).append("/").append(name))) owners.emplace(*owner, name);
  }
  return owners;
}

std::string absoluteVariable(const char* name) {
  const char* value =
      std::getenv(name);  // NOLINT(concurrency-mt-unsafe): read once, before any thread starts
  return value != nullptr && value[0] == '/' ? withoutTrailingSlashes(value) : std::string();
}

/// True if `path` is `folder` or lies below it.
bool isAtOrBelow(std::string_view path, std::string_view folder) {
  return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

/// The file URL of the changed path, or `url` itself if the path does not change.
template <class Change>
URL withPath(const URL& url, const Change& change) {
  if (!url.isFileURL() || url.isEmptyPath()) return url;
  const std::string path = url.path();
  const std::string changed = change(path);
  return changed == path ? url : URL::fileURL(changed, url.relativeText().ends_with('/'));
}

std::atomic<const Host*> installed{nullptr};

}  // namespace

Host Host::macVolume(std::string root, std::string user, MainBundle bundle) {
  Host host;
  host.layout_ = Layout::MacVolume;
  host.root_ = withoutTrailingSlashes(std::move(root));
  host.homes_ = host.followingLinks(host.root_ + "/Users");
  const std::string entry = host.root_ + "/Users/" + user;
  host.userName_ = user.empty() ? user : std::string(lastPathComponent(host.matchingLetterCase(entry)));
  const VolumePlace home = placeOnVolume(host.root_, entry, LastLink::Followed);
  host.home_ = home.path;
  host.bundle_ = std::move(bundle);
  host.userID_ = ownerOf(home.real).value_or(::getuid());
  host.volumeOwners_ = ownersOfHomes(host.homesFolder());
  // If several homes have one owner, the user of this host wins.
  if (exists(host.home_)) host.volumeOwners_[host.userID_] = host.userName_;
  return host;
}

Host Host::linuxDesktop(MainBundle bundle) {
  Host host;
  host.layout_ = Layout::LinuxDesktop;
  host.userID_ = ::getuid();
  std::vector<char> buffer;
  const auto effective = passwordEntry(::geteuid(), buffer);
  host.userName_ = effective ? effective->pw_name : std::to_string(::geteuid());
  host.home_ = absoluteVariable("HOME");
  if (host.home_.empty()) host.home_ = effective ? effective->pw_dir : "/";
  for (const XDGFolder& folder : kXDGFolders) {
    std::string place = absoluteVariable(folder.variable);
    if (place.empty()) place = host.home_ + '/' + std::string(folder.belowHome);
    host.xdg_.emplace(folder.belowHome, std::move(place));
  }
  host.bundle_ = std::move(bundle);
  return host;
}

void Host::install(Host host) {
  // Never freed: a thread of an earlier scan may still use the host it started with.
  static std::mutex mutex;
  static std::vector<std::unique_ptr<const Host>>& hosts = *new std::vector<std::unique_ptr<const Host>>;
  const std::lock_guard lock(mutex);
  hosts.push_back(std::make_unique<const Host>(std::move(host)));
  installed.store(hosts.back().get(), std::memory_order_release);
}

const Host& Host::current() {
  if (const Host* host = installed.load(std::memory_order_acquire)) return *host;
  static const Host& machine = *new Host(linuxDesktop({}));
  return machine;
}

bool Host::hasHome() const {
  struct stat status {};
  const std::string home = isOnVolume(home_) ? placeOnVolume(root_, home_, LastLink::Followed).real : home_;
  return ::stat(home.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::string Host::homesFolder() const { return layout_ == Layout::MacVolume ? homes_ : "/home"; }

std::string Host::locate(std::string_view layoutPath) const {
  if (layout_ == Layout::MacVolume) return matchingLetterCase(root_ + std::string(layoutPath));
  for (const auto& [belowHome, place] : xdg_) {
    const std::string usual = home_ + '/' + belowHome;
    if (isAtOrBelow(layoutPath, usual)) return place + std::string(layoutPath.substr(usual.size()));
  }
  return std::string(layoutPath);
}

URL Host::locate(const URL& layoutURL) const {
  if (!layoutURL.isFileURL() || layoutURL.isEmptyPath()) return layoutURL;
  const std::string path = layoutURL.path();
  if (path.empty() || path.front() != '/') return layoutURL;
  const std::string place = locate(path);
  if (place == path) return layoutURL;
  return URL::fileURL(place, layoutURL.relativeText().ends_with('/'));
}

std::string Host::layoutPath(std::string_view path) const {
  if (root_.empty() || !isAtOrBelow(path, root_)) return std::string(path);
  path.remove_prefix(root_.size());
  return path.empty() ? "/" : std::string(path);
}

std::string Host::homeURLText() const {
  if (layout_ == Layout::MacVolume) return "file:///Users/" + percentEncodedPath(userName_) + '/';
  return "file://" + percentEncodedPath(home_) + '/';
}

std::string Host::applicationSupportFolder() const {
  return layout_ == Layout::MacVolume ? followingLinks(home_ + "/Library/Application Support")
                                      : xdg_.at(".local/share");
}

std::string Host::cachesFolder() const {
  return layout_ == Layout::MacVolume ? followingLinks(home_ + "/Library/Caches") : xdg_.at(".cache");
}

std::string Host::preferencesFolder() const {
  return layout_ == Layout::MacVolume ? followingLinks(home_ + "/Library/Preferences") : xdg_.at(".config");
}

std::string Host::documentsFolder() const { return userFolder("XDG_DOCUMENTS_DIR", "/Documents"); }

std::string Host::picturesFolder() const { return userFolder("XDG_PICTURES_DIR", "/Pictures"); }

std::string Host::userFolder(std::string_view variable, std::string_view belowHome) const {
  if (layout_ == Layout::LinuxDesktop) {
    if (auto folder = userDirectory(xdg_.at(".config"), variable, home_)) return *folder;
  }
  return followingLinks(home_ + std::string(belowHome));
}

std::optional<std::string> Host::mailFolder() const {
  if (layout_ == Layout::LinuxDesktop) return std::nullopt;
  return followingLinks(home_ + "/Library/Mail");
}

std::optional<std::string> Host::ownerName(uid_t uid) const {
  if (const auto known = volumeOwners_.find(uid); known != volumeOwners_.end()) return known->second;
  // The user database may be on the network: each id is queried once.
  static std::mutex mutex;
  static std::map<uid_t, std::optional<std::string>>& names =
      *new std::map<uid_t, std::optional<std::string>>;
  const std::lock_guard lock(mutex);
  const auto [entry, isNew] = names.try_emplace(uid);
  if (isNew) entry->second = passwordName(uid);
  return entry->second;
}

bool Host::isOnVolume(std::string_view path) const {
  return layout_ == Layout::MacVolume && path.starts_with('/') && isAtOrBelow(path, root_);
}

std::string Host::matchingLetterCase(std::string_view path) const {
  if (!isOnVolume(path)) return std::string(path);
  return placeOnVolume(root_, path, LastLink::Kept).path;
}

std::string Host::followingLinks(std::string_view path) const {
  if (!isOnVolume(path)) return std::string(path);
  return placeOnVolume(root_, path, LastLink::Followed).path;
}

URL Host::matchingLetterCase(const URL& url) const {
  return withPath(url, [this](const std::string& path) { return matchingLetterCase(path); });
}

URL Host::followingLinks(const URL& url) const {
  return withPath(url, [this](const std::string& path) { return followingLinks(path); });
}

std::string Host::tool(std::string_view path) const {
  if (!toolFolder_.empty()) {
    std::string standIn = toolFolder_ + '/' + std::string(sorrel::lastPathComponent(path));
    if (isProgram(standIn)) return standIn;
  }
  return std::string(path);
}

std::optional<std::string> Host::resourcePath(std::string_view name, std::string_view type) const {
  if (bundle_.resourceFolder.empty()) return std::nullopt;
  std::string path = bundle_.resourceFolder + '/' + std::string(name);
  if (!type.empty()) path.append(".").append(type);
  if (!exists(path)) return std::nullopt;
  return path;
}

}  // namespace sorrel
