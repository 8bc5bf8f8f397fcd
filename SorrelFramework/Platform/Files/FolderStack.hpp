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

/// The folders from the root of a walk down to the current one, with a bounded number of them open at any
/// depth. A folder high up is closed when the walk goes deep, and reopened when the walk comes back: through
/// the ".." of the folder below it or, if that was moved elsewhere meanwhile, by the names from the nearest
/// open ancestor. The result is accepted only if it is the same folder (device and inode) as before. The root
/// stays open while there are enough descriptors; if there are not, a walk works with two (OpenFolderLimit).
class FolderStack {
 public:
  static constexpr std::size_t kMostOpen = OpenFolderLimit::kMost;

  /// `isStopped` ends the wait for a descriptor that other walks hold.
  explicit FolderStack(std::function<bool()> isStopped = {});

  [[nodiscard]] std::size_t depth() const noexcept { return levels_.size(); }
  void pushRoot(FileDescriptor root);
  /// Enters `name`; false, with errno, if it can't be entered (openFolderIn). Then nothing has changed.
  bool push(const char* name);
  /// Goes up. False, with errno, if there is no folder above, or if it can't be found again: then top() is
  /// -1.
  bool pop();
  /// The current folder; -1 after a failed pop().
  [[nodiscard]] int top() const noexcept { return levels_.back().folder.get(); }
  /// The folder `index` levels below the root; -1 while it is closed.
  [[nodiscard]] int at(std::size_t index) const noexcept { return levels_[index].folder.get(); }
  void clear();

 private:
  struct Level {
    FileDescriptor folder;
    std::string name;          // in the folder above
    std::uint64_t device = 0;  // set once the folder was closed
    std::uint64_t inode = 0;

    /// Accepts `opened` for this level if it is the folder that was closed.
    bool accept(FileDescriptor opened);
    void close();
  };
  void closeFarthest(std::size_t most);
  bool giveBack();
  FileDescriptor openSparing(const std::function<FileDescriptor()>& open);
  bool goBackFrom(const FileDescriptor& left);
  bool reopenTopByNames();

  std::function<bool()> isStopped_;
  std::optional<OpenFolderLimit::Walk> walk_;  // set while the stack is not empty
  std::vector<Level> levels_;
  std::size_t firstOpen_ = 1;  // no folder above this one is open, except the root
};

}  // namespace sorrel
