#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace sorrel::cli {

/// Where file systems keep what paths lead to: one text for one place, through whichever mounts and links it
/// is reached. A view that a file system of its own makes, such as an overlay, is a place of its own.
class StoredPlaces {
 public:
  /// By the text of /proc/self/mountinfo, proc(5).
  explicit StoredPlaces(std::string_view mountTable);
  static StoredPlaces ofThisMoment();

  /// Of the item itself, be it a link: "8:1/folder/item", the file system's number and the path from its top.
  /// Of what can't be reached, or lies in no mount of the table, the path as it is.
  [[nodiscard]] std::string of(const std::string& path) const;

 private:
  struct Mount {
    std::string place;  // of what is mounted
    std::string point;  // without a slash at its end
  };

  std::map<std::uint64_t, Mount> mounts_;
};

}  // namespace sorrel::cli
