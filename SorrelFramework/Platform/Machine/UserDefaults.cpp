#include "SorrelFramework/Platform/Machine/UserDefaults.hpp"

#include <strings.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <memory>
#include <system_error>

#include "SorrelFramework/Platform/Machine/Host.hpp"

namespace sorrel {

namespace {

/// "" for an empty identifier, or one that would name a file in another folder.
std::string standardPath() {
  const std::string& identifier = Host::current().mainBundle().identifier;
  const bool isFileName =
      !identifier.empty() && identifier.find_first_of(std::string_view("/\0", 2)) == std::string::npos;
  return isFileName ? Host::current().preferencesFolder() + "/" + identifier + ".plist" : std::string();
}

}  // namespace

UserDefaults& UserDefaults::standard() {
  // One instance for each file, never freed: a caller may still hold it when another host is installed.
  static std::mutex mutex;
  static std::map<std::string, std::unique_ptr<UserDefaults>> instances;
  const std::string path = standardPath();
  const std::lock_guard lock(mutex);
  std::unique_ptr<UserDefaults>& instance = instances[path];
  if (instance == nullptr) instance = std::make_unique<UserDefaults>(path);
  return *instance;
}

std::optional<PropertyList> UserDefaults::load() const {
  if (path_.empty()) return PropertyList();
  struct stat status {};
  if (::stat(path_.c_str(), &status) != 0 && errno == ENOENT) return PropertyList();
  std::optional<PropertyList> list = readPropertyListFile(path_);
  if (!list.has_value() || list->asDictionary() == nullptr) return std::nullopt;
  return list;
}

bool UserDefaults::store(const PropertyList& list) const {
  if (path_.empty()) return false;
  std::error_code ignored;  // the write fails too if the folder could not be created
  std::filesystem::create_directories(std::filesystem::path(path_).parent_path(), ignored);
  return writePropertyListFile(path_, list);
}

std::optional<PropertyList> UserDefaults::value(std::string_view key) const {
  const std::lock_guard lock(mutex_);
  const std::optional<PropertyList> list = load();
  const PropertyList* found = list.has_value() ? list->find(key) : nullptr;
  return found == nullptr ? std::nullopt : std::optional(*found);
}

std::optional<std::string> UserDefaults::string(std::string_view key) const {
  const std::optional<PropertyList> found = value(key);
  if (!found.has_value() || found->asString() == nullptr) return std::nullopt;
  return *found->asString();
}

bool UserDefaults::boolean(std::string_view key) const {
  const std::optional<PropertyList> found = value(key);
  if (!found.has_value()) return false;
  if (const std::string* text = found->asString())
    return ::strcasecmp(text->c_str(), "yes") == 0 || ::strcasecmp(text->c_str(), "true") == 0;
  return found->asBoolean().value_or(false);
}

bool UserDefaults::set(std::string_view key, PropertyList value) {
  const std::lock_guard lock(mutex_);
  std::optional<PropertyList> list = load();
  if (!list.has_value()) return false;
  list->asDictionary()->set(std::string(key), std::move(value));
  return store(*list);
}

bool UserDefaults::remove(std::string_view key) {
  const std::lock_guard lock(mutex_);
  std::optional<PropertyList> list = load();
  if (!list.has_value()) return false;
  return !list->asDictionary()->erase(key) || store(*list);
}

}  // namespace sorrel
