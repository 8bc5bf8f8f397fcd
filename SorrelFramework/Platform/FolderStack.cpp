#include "SorrelFramework/Platform/FolderStack.hpp"

#include <fcntl.h>

#include <utility>

#include "SorrelFramework/Platform/FileStatus.hpp"
#include "SorrelFramework/Platform/FolderStream.hpp"

namespace sorrel {

void FolderStack::pushRoot(FileDescriptor root) {
  levels_.clear();
  levels_.push_back({std::move(root), 0, 0});
}

bool FolderStack::push(const char* name) {
  FileDescriptor folder = openFolderIn(top(), name);
  if (!folder.isOpen()) return false;
  levels_.push_back({std::move(folder), 0, 0});
  closeFarthest();
  return true;
}

bool FolderStack::pop() {
  const FileDescriptor left = std::move(levels_.back().folder);
  levels_.pop_back();
  if (levels_.empty()) return false;
  Level& level = levels_.back();
  if (level.folder.isOpen() || !left.isOpen()) return level.folder.isOpen();
  FileDescriptor above(::openat(left.get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
  if (!above.isOpen()) return false;
  const auto status = statusOf(above.get());
  if (!status || status->device != level.device || status->inode != level.inode) return false;
  level.folder = std::move(above);
  return true;
}

void FolderStack::closeFarthest() {
  if (levels_.size() <= kMostOpen) return;
  Level& level = levels_[levels_.size() - 1 - kMostOpen];
  const auto status = level.folder.isOpen() ? statusOf(level.folder.get()) : std::nullopt;
  if (!status) return;
  level.device = status->device;
  level.inode = status->inode;
  level.folder.reset();
}

}  // namespace sorrel
