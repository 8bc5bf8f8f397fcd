#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "SorrelFramework/Platform/FileDescriptor.hpp"

namespace sorrel {

/// The folders from the root of a walk down to where it is, with a bounded number of them open at any depth.
/// A folder high up is closed when the walk goes deep, and opened again through the ".." of the folder below
/// it when the walk comes back; it counts only if it is the same folder (device and inode) as before.
class FolderStack {
 public:
  static constexpr std::size_t kMostOpen = 32;

  [[nodiscard]] std::size_t depth() const noexcept { return levels_.size(); }
  void pushRoot(FileDescriptor root);
  /// Goes down into `name`; false, with errno, if it can't be entered (openFolderIn). Then nothing has
  /// changed.
  bool push(const char* name);
  /// Goes up. False if the folder above is not there any more: then isOpen() of it is false.
  bool pop();
  /// The folder the walk is in; -1 after a failed pop().
  [[nodiscard]] int top() const noexcept { return levels_.back().folder.get(); }
  /// The folder `index` levels below the root; -1 while it is closed.
  [[nodiscard]] int at(std::size_t index) const noexcept { return levels_[index].folder.get(); }
  void clear() noexcept { levels_.clear(); }

 private:
  struct Level {
    FileDescriptor folder;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
  };
  void closeFarthest();

  std::vector<Level> levels_;
};

}  // namespace sorrel
