#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>

#include "SorrelFramework/Platform/Machine/DesktopTrash.hpp"
#include "SorrelFramework/Removal/RemovalPolicy.hpp"
#include "SorrelFramework/Removal/TreeRemoval.hpp"

namespace sorrel {

/// What a desktop's trash has on record about the items that a clean removes from it: once an item is gone,
/// its `.trashinfo` goes, and then its line in `directorysizes`. Otherwise name and origin of what was
/// deleted stay readable, and other programs list items that are no longer there. Any folder but a trash of
/// the user (DesktopTrash) has no records. Not safe on several threads at a time; `policy` must outlive it.
class TrashRecords {
 public:
  explicit TrashRecords(const RemovalPolicy& policy) : items_(policy), infos_(policy) {}

  /// To be called when the item at `path`, a normal path, was removed. Does nothing if an item is still, or
  /// again, there. The record is found in the `info` folder beside the very `files` folder that held the
  /// item, without a link on the way.
  void forget(const std::string& path);
  /// Takes the lines of all that was forgotten since the last call out of `directorysizes`.
  void finish();
  /// The record that is still there though the item at `path`, of a trash, is gone.
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
