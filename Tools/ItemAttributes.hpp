#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sorrel::tools {

/// A line of mdls(1): "kMDItemFSSize" and "640". A list has its values in parentheses, each on a line.
struct ItemAttribute {
  std::string_view name;
  std::string value;
};

/// The item's own attributes, sorted by name: dates, type and type tree, kind, size, number of entries. Texts
/// are in quotes, dates are UTC; a value that an item of its type does not have is "(null)". The size of a
/// folder or package is that of all files below it. kMDItemLastUsedDate is included only if there is one: a
/// search for unused items tests its presence. No name of a file is among the values, so that none can be
/// mistaken for another attribute. Nothing if the item can't be reached.
std::optional<std::vector<ItemAttribute>> itemAttributes(const std::string& path);

}  // namespace sorrel::tools
