#include "SorrelFramework/Platform/Files/FolderStack.hpp"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>

#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Files/FolderStream.hpp"

namespace sorrel {

FolderStack::FolderStack(std::function<bool()> isStopped) : isStopped_(std::move(isStopped)) {}

void FolderStack::pushRoot(FileDescriptor root) {
  levels_.clear();
  walk_.emplace();
  levels_.push_back({std::move(root), {}, 0, 0});
  firstOpen_ = 1;
}

void FolderStack::clear() {
  levels_.clear();
  walk_.reset();
}

bool FolderStack::push(const char* name) {
  FileDescriptor folder = openSparing([this, name] { return openFolderIn(top(), name); });
  if (!folder.isOpen()) return false;
  levels_.push_back({std::move(folder), name, 0, 0});
  closeFarthest(OpenFolderLimit::most());
  return true;
}

bool FolderStack::pop() {
  FileDescriptor left = std::move(levels_.back().folder);
  levels_.pop_back();
  if (levels_.empty()) {
    left.reset();
    walk_.reset();
    errno = ENOENT;
    return false;
  }
  const bool isBack = goBackFrom(left);
  const int error = errno;
  left.reset();
  closeFarthest(OpenFolderLimit::most());
  if (OpenFolderLimit::isShort()) OpenFolderLimit::wakeWaiting();
  errno = error;
  return isBack;
}

/// Reopens the top if it was closed. `left` is the folder below it.
bool FolderStack::goBackFrom(const FileDescriptor& left) {
  if (levels_.back().folder.isOpen()) return true;
  firstOpen_ = std::min(firstOpen_, std::max<std::size_t>(levels_.size() - 1, 1));
  constexpr int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW;
  const auto openAbove = [&left] { return FileDescriptor(::openat(left.get(), "..", flags)); };
  if (left.isOpen() && levels_.back().accept(openSparing(openAbove))) return true;
  return reopenTopByNames();
}

bool FolderStack::Level::accept(FileDescriptor opened) {
  const auto status = opened.isOpen() ? statusOf(opened.get()) : std::nullopt;
  if (!status) return false;
  if (status->device != device || status->inode != inode) {
    errno = ENOENT;
    return false;
  }
  folder = std::move(opened);
  return true;
}

void FolderStack::Level::close() {
  const auto status = folder.isOpen() ? statusOf(folder.get()) : std::nullopt;
  if (!status) return;
  device = status->device;
  inode = status->inode;
  folder.reset();
  if (OpenFolderLimit::isShort()) OpenFolderLimit::wakeWaiting();
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

/// Keeps the `most` nearest folders open, including the current one, and the root.
void FolderStack::closeFarthest(std::size_t most) {
  while (levels_.size() > firstOpen_ + most) levels_[firstOpen_++].close();
}

/// Closes one folder, the root last. False if only the current one is left.
bool FolderStack::giveBack() {
  if (levels_.size() > firstOpen_ + 1) {
    closeFarthest(levels_.size() - firstOpen_ - 1);
    return true;
  }
  if (levels_.size() < 2 || !levels_.front().folder.isOpen()) return false;
  levels_.front().close();
  return true;
}

FileDescriptor FolderStack::openSparing(const std::function<FileDescriptor()>& open) {
  return OpenFolderLimit::openSparing(
      open, [this] { return giveBack(); }, isStopped_);
}

}  // namespace sorrel
