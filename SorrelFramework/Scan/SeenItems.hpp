#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <tuple>
#include <utility>

namespace sorrel {

/// Recognises an item that was seen before through another mount: the only copy of a file must not pass for
/// two. Hard links are different items. Reads the file system.
class SeenItems {
 public:
  /// False if the item was inserted before. An item that can't be read is always new.
  [[nodiscard]] bool insert(const std::string& path, bool isFile);

 private:
  using Number = std::pair<std::uint64_t, std::uint64_t>;  // device, inode
  /// An item, the folder above it and its name there: the same through any mount, different for another hard
  /// link. A folder has no hard links, and only its own number.
  using Entry = std::tuple<Number, Number, std::string>;

  std::set<Entry> entries_;
};

}  // namespace sorrel
