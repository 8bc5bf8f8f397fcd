#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "SorrelFramework/Platform/Files/FolderStream.hpp"
#include "SorrelFramework/Removal/ItemIdentity.hpp"
#include "SorrelFramework/Removal/RemovalPolicy.hpp"

namespace sorrel {

/// The directory walk of one removal, used by removeItem(), which has checked that the item may go.
///
/// The folders from the item down to the current one are kept on a stack on the heap. A folder is read one
/// buffer at a time: other entries are removed as they come, folders wait on their level until the buffer is
/// processed. Only the deepest levels are open; a level further up is reopened through "..", and must be the
/// same folder.
class FolderRemoval {
 public:
  /// Levels that are open at once. In addition: the folder that holds the item, the item, and one temporary
  /// descriptor.
  static constexpr std::size_t kMostOpen = 48;
  /// Passes over one folder. A file system may skip entries when others are removed at the same time, but a
  /// process that keeps adding entries must not keep the removal busy for ever.
  static constexpr int kMostReadings = 64;

  explicit FolderRemoval(const RemovalPolicy& policy) : policy_(policy) {}

  enum class Takes {
    Everything,
    NothingWithBytes,  ///< regular files with bytes stay (ENOTEMPTY), and so do the folders above them
  };

  /// Removes `name` from the open folder `parent` if it still is `item`.
  void run(FileDescriptor parent, std::string name, const ItemIdentity& item,
           Takes takes = Takes::Everything);

  /// 0 if the item is gone, else the first failure.
  [[nodiscard]] int error() const noexcept { return error_; }
  [[nodiscard]] bool isRefused() const noexcept { return isRefused_; }
  /// The owner of the first refused item, if that is neither root nor the caller.
  [[nodiscard]] std::optional<std::uint32_t> stranger() const noexcept { return stranger_; }
  [[nodiscard]] std::uint64_t removedEntries() const noexcept { return removedEntries_; }

 private:
  struct Level {
    FileDescriptor folder;
    std::string name;                              // in the folder above
    ItemIdentity identity;                         // unset for the bottom level, which stays open
    std::vector<std::string> pending;              // folders that were read and not yet entered
    std::unordered_set<std::uint64_t> remaining;   // inodes of folders that could not be removed
    std::optional<std::uint32_t> modeBefore = {};  // set if owner permissions were added
    int readings = 1;
    bool isRead = false;  // to its end
    bool hasRemoved = false;
    bool hasFailed = false;
  };

  /// True at the bottom of the stack, the folder that holds the item: there only the item may be touched.
  [[nodiscard]] bool isAtItem() const noexcept { return levels_.size() == 1; }
  [[nodiscard]] Level& here() noexcept { return levels_.back(); }

  void readOn();
  void handle(const char* name, FolderStream::Type type);
  void enter(const std::string& name);
  bool enterItem(const std::string& name);
  void goDown(FileDescriptor folder, const std::string& name, const ItemIdentity& identity);
  bool enterClosed(const std::string& name, const ItemIdentity& identity);
  void openHere();
  void restoreMode(const Level& level);
  void removeOther(const std::string& name, const ItemIdentity& identity);
  bool mustStay(const std::string& name);
  void removeUnreadable(const std::string& name, const ItemIdentity& identity);
  void take(const std::string& name, int flags);
  void finishFolder();
  void removeFinishedFolder();
  bool readAgain();
  bool openFolderAbove();
  void leave(int error);
  void abandon(int error);
  void closeFarthest();
  bool mayTouch(const ItemIdentity& identity);
  void fail(int error);
  void failByName(int error);

  const RemovalPolicy& policy_;
  FolderStream stream_;
  std::vector<Level> levels_;
  ItemIdentity item_;
  Takes takes_ = Takes::Everything;
  std::uint64_t removedEntries_ = 0;
  int error_ = 0;
  bool isRefused_ = false;
  std::optional<std::uint32_t> stranger_;
};

}  // namespace sorrel
