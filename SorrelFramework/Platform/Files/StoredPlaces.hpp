#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace sorrel {

/// Identifies where file systems store the items that paths lead to: one text for one item, through any
/// mounts and links. An item that is seen through a file system of its own, such as an overlay, has another
/// text.
class StoredPlaces {
 public:
  /// Parses the text of /proc/self/mountinfo, proc(5).
  explicit StoredPlaces(std::string_view mountTable);
  static StoredPlaces ofThisMoment();

  /// "8:1/folder/item" for the item itself, even if it is a link: the file system's number and the path from
  /// its root. The path as it is if the item can't be reached or lies in no mount of the table.
  [[nodiscard]] std::string of(const std::string& path) const;

 private:
  struct Stored {
    std::string place;  // location of the mounted folder
    std::string point;  // without a trailing slash
  };

  std::map<std::uint64_t, Stored> mounts_;  // by their IDs
};

}  // namespace sorrel
