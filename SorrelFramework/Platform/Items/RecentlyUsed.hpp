#pragma once

#include <map>
#include <optional>
#include <string>

#include "SorrelFramework/Platform/Base/Date.hpp"

namespace sorrel {

/// The list in which the programs of a desktop record the files they open: recently-used.xbel in the user's
/// data folder, a "desktop bookmark" file of freedesktop.org.
class RecentlyUsed {
 public:
  /// Nothing unless `listFile` is a regular file of at most 16 MiB that can be parsed as such a list. Any
  /// thread.
  static std::optional<RecentlyUsed> read(const std::string& listFile);

  /// The time when the file at `path` was last opened; nothing if the list does not contain it.
  [[nodiscard]] std::optional<Date> opened(const std::string& path) const;
  /// The time when the program at `path`, which is the file itself and not a link, last recorded a file.
  [[nodiscard]] std::optional<Date> ran(const std::string& path) const;

 private:
  RecentlyUsed() = default;

  std::map<std::string, Date> files_;
  std::map<std::string, Date> programs_;
};

}  // namespace sorrel
