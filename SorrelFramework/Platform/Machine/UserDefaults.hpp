#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"

namespace sorrel {

/// Settings that outlive the process: one property list for each domain. Every change is on disk when the
/// call returns. Any thread; changes by other processes are seen, because the file is read again for each
/// call.
class UserDefaults {
 public:
  /// The defaults in the file at `path`; with "" they are always empty and store nothing.
  explicit UserDefaults(std::string path) : path_(std::move(path)) {}
  UserDefaults(const UserDefaults&) = delete;
  UserDefaults& operator=(const UserDefaults&) = delete;

  /// The defaults of the main bundle: IDENTIFIER.plist in the preferences folder of Host::current(). Without
  /// an identifier, or with one that is not a valid file name, they store nothing.
  [[nodiscard]] static UserDefaults& standard();

  [[nodiscard]] const std::string& path() const noexcept { return path_; }

  /// Nothing if the key is missing.
  [[nodiscard]] std::optional<PropertyList> value(std::string_view key) const;
  /// Nothing if the key is missing or its value is not a text.
  [[nodiscard]] std::optional<std::string> string(std::string_view key) const;
  /// False if the key is missing or its value is not a boolean; the texts "YES" and "true" in any letter case
  /// count too.
  [[nodiscard]] bool boolean(std::string_view key) const;

  /// False if the change could not be written; the file is unchanged then. A file that exists but can't be
  /// read as a dictionary is never overwritten.
  bool set(std::string_view key, PropertyList value);
  bool remove(std::string_view key);

 private:
  [[nodiscard]] std::optional<PropertyList> load() const;
  [[nodiscard]] bool store(const PropertyList& list) const;

  std::string path_;
  mutable std::mutex mutex_;
};

}  // namespace sorrel
