#include "SorrelFramework/Platform/FolderStack.hpp"

#include <fcntl.h>

#include <optional>
#include <utility>

#include "SorrelFramework/Platform/FileStatus.hpp"
#include "SorrelFramework/Platform/FolderStream.hpp"

namespace sorrel {

void FolderStack::pushRoot(FileDescriptor root) {
  levels_.clear();
  levels_.push_back({std::move(root), {}, 0, 0});
}

bool FolderStack::push(const char* name) {
  FileDescriptor folder = openFolderIn(top(), name);
  if (!folder.isOpen()) return false;
  levels_.push_back({std::move(folder), name, 0, 0});
  closeFarthest();
  return true;
}

bool FolderStack::pop() {
  const FileDescriptor left = std::move(levels_.back().folder);
  levels_.pop_back();
  if (levels_.empty()) return false;
  Level& level = levels_.back();
  if (level.folder.isOpen()) return true;
  constexpr int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW;
  return (left.isOpen() && level.accept(FileDescriptor(::openat(left.get(), "..", flags)))) ||
         reopenTopByNames();
}

bool FolderStack::Level::accept(FileDescriptor opened) {
  const auto status = opened.isOpen() ? statusOf(opened.get()) : std::nullopt;
  if (!status || status->device != device || status->inode != inode) return false;
  folder = std::move(opened);
  return true;
}

bool FolderStack::reopenTopByNames() {
  std::size_t index = levels_.size() - 1;
  while (!levels_[index].folder.isOpen()) {
    if (index == 0) return false;
    --index;
  }
  int above = levels_[index].folder.get();
  FileDescriptor opened;
  while (++index < levels_.size()) {
    opened = openFolderIn(above, levels_[index].name.c_str());
    if (!opened.isOpen()) return false;
    above = opened.get();
  }
  return levels_.back().accept(std::move(opened));
}

void FolderStack::closeFarthest() {
  if (levels_.size() <= kMostOpen + 1) return;
  Level& level = levels_[levels_.size() - 1 - kMostOpen];
  const auto status = level.folder.isOpen() ? statusOf(level.folder.get()) : std::nullopt;
  if (!status) return;
  level.device = status->device;
  level.inode = status->inode;
  level.folder.reset();
}

}  // namespace sorrel
