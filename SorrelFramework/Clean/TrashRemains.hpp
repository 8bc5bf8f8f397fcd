#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "SorrelFramework/Platform/Base/Date.hpp"
#include "SorrelFramework/Platform/Machine/DesktopTrash.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"
#include "SorrelFramework/Removal/ItemIdentity.hpp"

namespace sorrel {

/// The items left in a desktop's trash after everything that a scan listed was removed: items of zero bytes,
/// which no scan lists, records whose item is gone, and items that a file manager was about to delete. For an
/// application whose user empties the whole trash: it can show the found items, and then remove exactly
/// those.
class TrashRemains {
 public:
  enum class Kind { ItemWithoutBytes, Record, Expunged };
  struct Item {
    std::string path;
    std::int64_t size = 0;  ///< bytes of the regular files at and below it
    Kind kind = Kind::ItemWithoutBytes;
    ItemNumber number = {};  ///< for an item without bytes
  };

  /// File managers write the record of an item before they move the item, so a younger record is left alone.
  static constexpr double kSecondsOfMove = 3600;

  /// Reads those of the folders `roots` that hold the items of a trash of the user (DesktopTrash) and changes
  /// nothing. An item with an unreadable part counts as not empty.
  static TrashRemains find(const std::vector<URL>& roots, Date now);

  [[nodiscard]] const std::vector<Item>& items() const noexcept { return items_; }
  /// The records that were too young to be among items(), and are still there without their item.
  [[nodiscard]] std::vector<Item> youngRecords() const;

  /// Removes the found items, until `isStopped` returns true. An item without bytes that has gained some
  /// since, or was replaced by another, stays with its record; no file with bytes in it is removed. Returns
  /// the paths that could not be removed, or updated. Must not run during a clean of the same trash; on the
  /// calling thread.
  [[nodiscard]] std::vector<std::string> remove(const std::function<bool()>& isStopped = {}) const;

  /// The items with bytes that existed before and still exist: a clean should have removed them.
  [[nodiscard]] std::vector<std::string> itemsThatStayed() const;

 private:
  void look(DesktopTrash trash, Date now);

  std::vector<DesktopTrash> trashes_;
  std::vector<Item> items_;
  std::vector<Item> youngRecords_;
  std::vector<std::string> itemsWithBytes_;
};

}  // namespace sorrel
