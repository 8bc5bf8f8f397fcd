#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "SorrelFramework/Platform/Files/OpenFolderLimit.hpp"

namespace sorrel {

/// The folders from the root of a walk down to where it is, with a bounded number of them open at any depth.
/// A folder high up is closed when the walk goes deep, and opened again when the walk comes back: through the
/// ".." of the folder below it or, if that was moved elsewhere meanwhile, by the names from the nearest open
/// folder above. It counts only if it is the same folder (device and inode) as before. The root stays open
/// while there are descriptors enough; when there are not, two are enough for a walk (OpenFolderLimit).
class FolderStack {
 public:
  static constexpr std::size_t kMostOpen = OpenFolderLimit::kMost;

  /// `isStopped` ends the wait for a descriptor that other walks have.
  explicit FolderStack(std::function<bool()> isStopped = {});

  [[nodiscard]] std::size_t depth() const noexcept { return levels_.size(); }
  void pushRoot(FileDescriptor root);
  /// Goes down into `name`; false, with errno, if it can't be entered (openFolderIn). Then nothing has
  /// changed.
  bool push(const char* name);
  /// Goes up. False, with errno, if there is no folder above, or if it is not where it was any more: then
  /// top() is -1.
  bool pop();
  /// The folder the walk is in; -1 after a failed pop().
  [[nodiscard]] int top() const noexcept { return levels_.back().folder.get(); }
  /// The folder `index` levels below the root; -1 while it is closed.
  [[nodiscard]] int at(std::size_t index) const noexcept { return levels_[index].folder.get(); }
  void clear();

 private:
  struct Level {
    FileDescriptor folder;
    std::string name;          // in the folder above
    std::uint64_t device = 0;  // known once the folder was closed
    std::uint64_t inode = 0;

    /// Takes `opened` for this level if it is the folder that was closed.
    bool accept(FileDescriptor opened);
    void close();
  };
  void closeFarthest(std::size_t most);
  bool giveBack();
  FileDescriptor openSparing(const std::function<FileDescriptor()>& open);
  bool goBackFrom(const FileDescriptor& left);
  bool reopenTopByNames();

  std::function<bool()> isStopped_;
  std::optional<OpenFolderLimit::Walk> walk_;  // while there are folders
  std::vector<Level> levels_;
  std::size_t firstOpen_ = 1;  // no folder above this one is open, but for the root
};

}  // namespace sorrel
