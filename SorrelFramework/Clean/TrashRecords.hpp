#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>

#include "SorrelFramework/Platform/Machine/DesktopTrash.hpp"
#include "SorrelFramework/Removal/RemovalPolicy.hpp"
#include "SorrelFramework/Removal/TreeRemoval.hpp"

namespace sorrel {

/// The records that a desktop's trash keeps about the items that a clean removes from it: once an item is
/// gone, its `.trashinfo` is removed, and then its line in `directorysizes`. Otherwise name and origin of the
/// deleted item stay readable, and other programs list items that no longer exist. A folder that is not a
/// trash of the user (DesktopTrash) has no records. Not thread-safe; `policy` must outlive it.
class TrashRecords {
 public:
  explicit TrashRecords(const RemovalPolicy& policy) : items_(policy), infos_(policy) {}

  /// To be called after the item at `path`, a normal path, was removed. Does nothing if an item exists there,
  /// or exists again. The record is looked up in the `info` folder beside the `files` folder that held the
  /// item, without following a link.
  void forget(const std::string& path);
  /// Removes the lines of all items forgotten since the last call from `directorysizes`.
  void finish();
  /// The record that still exists though the item at `path`, in a trash, is gone.
  static std::optional<std::string> recordLeftBy(const std::string& path);

 private:
  /// A folder called `files` that held a removed item, and the trash if it belongs to one.
  struct Known {
    std::optional<DesktopTrash> trash;
    ItemNumber number;  // of the trash folder
    std::set<std::string> gone;
  };

  Known* trashWithFiles(const std::string& files);
  void removeInfo(const Known& known, const RemovalTarget& item);

  TreeRemover items_;
  TreeRemover infos_;
  std::map<std::string, Known> known_;  // by the path of `files`
};

}  // namespace sorrel
