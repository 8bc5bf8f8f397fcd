#pragma once

#include <map>
#include <optional>
#include <string>

#include "SorrelFramework/Platform/Base/Date.hpp"

namespace sorrel {

/// The list in which the programs of a desktop note what they open: recently-used.xbel in the user's data
/// folder, a "desktop bookmark" file of freedesktop.org.
class RecentlyUsed {
 public:
  /// Nothing unless `listFile` is a regular file of at most 16 MiB that can be read as such a list. Any
  /// thread.
  static std::optional<RecentlyUsed> read(const std::string& listFile);

  /// When the file at `path` was last opened; nothing if the list does not name it.
  [[nodiscard]] std::optional<Date> opened(const std::string& path) const;
  /// When the program at `path`, which is the file itself and no link, last noted anything.
  [[nodiscard]] std::optional<Date> ran(const std::string& path) const;

 private:
  RecentlyUsed() = default;

  std::map<std::string, Date> files_;
  std::map<std::string, Date> programs_;
};

}  // namespace sorrel
