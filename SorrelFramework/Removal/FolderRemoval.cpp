#include "SorrelFramework/Removal/FolderRemoval.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <utility>

#include "SorrelFramework/Removal/OwnerRights.hpp"

namespace sorrel {
namespace {

bool isNotEmpty(int error) { return error == ENOTEMPTY || error == EEXIST; }

}  // namespace

void FolderRemoval::run(FileDescriptor parent, std::string name, const ItemIdentity& item, Takes takes) {
  item_ = item;
  takes_ = takes;
  removedEntries_ = 0;
  error_ = 0;
  isRefused_ = false;
  stranger_.reset();
  levels_.clear();
  levels_.push_back({std::move(parent), {}, {}, {}, {}});
  here().isRead = true;
  here().pending.push_back(std::move(name));
  while (!isAtItem() || !here().pending.empty()) {
    if (!here().pending.empty()) {
      const std::string next = std::move(here().pending.back());
      here().pending.pop_back();
      enter(next);
    } else if (!here().isRead) {
      readOn();
    } else {
      finishFolder();
    }
  }
  if (here().hasRemoved) {
    // The item is gone, so no earlier failure left anything behind.
    error_ = 0;
    isRefused_ = false;
    stranger_.reset();
  }
}

void FolderRemoval::readOn() {
  stream_.start(here().folder.get());
  do {
    const FolderStream::Entry* entry = stream_.next();
    if (entry == nullptr) {
      here().isRead = true;
      if (stream_.error() != 0 && stream_.error() != ENOENT) fail(stream_.error());
      return;
    }
    handle(entry->name, entry->type);
  } while (!stream_.isDrained());
}

void FolderRemoval::handle(const char* name, FolderStream::Type type) {
  if (type == FolderStream::Type::Directory) {
    here().pending.emplace_back(name);
    return;
  }
  const auto identity = identityOf(here().folder.get(), name);
  if (!identity) return failByName(errno);
  if (identity->isDirectory()) {
    here().pending.emplace_back(name);
  } else {
    removeOther(name, *identity);
  }
}

void FolderRemoval::enter(const std::string& name) {
  if (isAtItem() && item_.isDirectory() && enterItem(name)) return;
  const auto identity = identityOf(here().folder.get(), name.c_str());
  if (!identity) return failByName(errno);
  if (!identity->isDirectory()) return removeOther(name, *identity);
  if (!mayTouch(*identity)) return;
  if (here().remaining.contains(identity->number.inode)) {
    here().hasFailed = true;
    return;
  }
  FileDescriptor folder = openFolderIn(here().folder.get(), name.c_str());
  if (!folder.isOpen() && errno == EACCES) {
    return enterClosed(name, *identity) ? void() : removeUnreadable(name, *identity);
  }
  if (!folder.isOpen()) return failByName(errno);
  const auto opened = identityOf(folder.get());
  if (!opened) return fail(errno);
  if (!opened->isSameAs(*identity)) return fail(ESTALE);
  goDown(std::move(folder), name, *identity);
}

void FolderRemoval::goDown(FileDescriptor folder, const std::string& name, const ItemIdentity& identity) {
  levels_.push_back({std::move(folder), name, identity, {}, {}});
  openHere();
  closeFarthest();
}

/// Enters a folder that its owner, the user, may not read, after adding that permission. False if that does
/// not open it; the mode is then unchanged.
bool FolderRemoval::enterClosed(const std::string& name, const ItemIdentity& identity) {
  if (!policy_.opensOwnFolders()) return false;
  const FileDescriptor held = holdFolderIn(here().folder.get(), name.c_str());
  const auto found = held.isOpen() ? identityOf(held.get()) : std::nullopt;
  if (!found || !found->isSameAs(identity)) return false;
  const auto before = giveOwnerRights(held.get(), policy_.caller());
  if (!before) return false;
  FileDescriptor folder = openFolderIn(here().folder.get(), name.c_str());
  const auto opened = folder.isOpen() ? identityOf(folder.get()) : std::nullopt;
  if (!opened || !opened->isSameAs(identity)) {
    setFolderMode(held.get(), *before);
    return false;
  }
  goDown(std::move(folder), name, identity);
  here().modeBefore = before;
  return true;
}

/// If the user owns the folder, adds the owner permissions that it lacks.
void FolderRemoval::openHere() {
  if (policy_.opensOwnFolders()) {
    here().modeBefore = giveOwnerRights(here().folder.get(), policy_.caller());
  }
}

/// closeFarthest() has restored the mode of a closed level already.
void FolderRemoval::restoreMode(const Level& level) {
  if (level.modeBefore && level.folder.isOpen()) setFolderMode(level.folder.get(), *level.modeBefore);
}

/// The item was checked a moment ago, so opening it by name (no links, no mount points) and comparing
/// identities is enough. False if it could not be opened or identified; then nothing has happened.
bool FolderRemoval::enterItem(const std::string& name) {
  FileDescriptor folder = openFolderIn(here().folder.get(), name.c_str());
  const auto opened = folder.isOpen() ? identityOf(folder.get()) : std::nullopt;
  if (!opened || !mayTouch(*opened)) return opened.has_value();
  goDown(std::move(folder), name, *opened);
  return true;
}

/// Must be called right after `identity` was taken.
void FolderRemoval::removeOther(const std::string& name, const ItemIdentity& identity) {
  if (mayTouch(identity) && !mustStay(name)) take(name, 0);
}

/// True for a regular file with bytes, if such files must stay. The named item itself may be another type,
/// such as a link: then its own size counts, as in a scan.
bool FolderRemoval::mustStay(const std::string& name) {
  if (takes_ == Takes::Everything) return false;
  struct stat status {};
  if (::fstatat(here().folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    failByName(errno);
    return true;
  }
  if (status.st_size == 0 || (!S_ISREG(status.st_mode) && !isAtItem())) return false;
  fail(ENOTEMPTY);
  return true;
}

/// An unreadable folder may still be empty and removable: the system call decides.
void FolderRemoval::removeUnreadable(const std::string& name, const ItemIdentity& identity) {
  const auto now = identityOf(here().folder.get(), name.c_str());
  if (!now) return failByName(errno);
  if (!now->isSameAs(identity)) return fail(ESTALE);
  take(name, AT_REMOVEDIR);
}

/// The only function besides removeFinishedFolder() that removes something.
void FolderRemoval::take(const std::string& name, int flags) {
  if (::unlinkat(here().folder.get(), name.c_str(), flags) == 0) {
    ++removedEntries_;
    here().hasRemoved = true;
  } else {
    failByName(flags != 0 && isNotEmpty(errno) ? EACCES : errno);
  }
}

void FolderRemoval::finishFolder() {
  if (!here().hasFailed) return removeFinishedFolder();
  if (!readAgain()) leave(0);
}

void FolderRemoval::removeFinishedFolder() {
  if (!openFolderAbove()) return abandon(ESTALE);
  Level& above = levels_[levels_.size() - 2];
  const char* const name = here().name.c_str();
  const auto identity = identityOf(above.folder.get(), name);
  if (!identity) return leave(errno);
  if (!identity->isSameAs(here().identity)) return leave(ESTALE);
  if (::unlinkat(above.folder.get(), name, AT_REMOVEDIR) == 0) {
    ++removedEntries_;
    above.hasRemoved = true;
    levels_.pop_back();
  } else if (const int error = errno; !isNotEmpty(error) || !readAgain()) {
    leave(error);
  }
}

/// Another pass helps only if the last one removed something.
bool FolderRemoval::readAgain() {
  Level& level = here();
  if (!level.hasRemoved || level.readings == kMostReadings) return false;
  if (::lseek(level.folder.get(), 0, SEEK_SET) != 0) return false;
  ++level.readings;
  level.isRead = level.hasRemoved = level.hasFailed = false;
  return true;
}

/// Goes up from a folder that stays, because of `error` if nothing in it failed.
void FolderRemoval::leave(int error) {
  if (!openFolderAbove()) return abandon(ESTALE);
  const std::uint64_t inode = here().identity.number.inode;
  restoreMode(here());
  levels_.pop_back();
  if (error != 0) {
    failByName(error);
  } else {
    here().hasFailed = true;
  }
  if (here().hasFailed) here().remaining.insert(inode);
}

/// The path back is lost: the folder was moved to another parent, where nothing may be removed.
void FolderRemoval::abandon(int error) {
  fail(error);
  for (auto level = levels_.begin() + 1; level != levels_.end(); ++level) restoreMode(*level);
  levels_.erase(levels_.begin() + 1, levels_.end());
}

bool FolderRemoval::openFolderAbove() {
  Level& above = levels_[levels_.size() - 2];
  if (above.folder.isOpen()) return true;
  constexpr int flags = O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  const FileDescriptor held(::openat(here().folder.get(), "..", O_PATH | flags));
  const auto identity = held.isOpen() ? identityOf(held.get()) : std::nullopt;
  if (!identity || !identity->isSameAs(above.identity)) return false;
  const auto before =
      above.modeBefore ? giveOwnerRights(held.get(), policy_.caller()) : std::optional<std::uint32_t>();
  FileDescriptor opened(::openat(here().folder.get(), "..", O_RDONLY | flags));
  const auto now = opened.isOpen() ? identityOf(opened.get()) : std::nullopt;
  if (!now || !now->isSameAs(above.identity)) {
    if (before) setFolderMode(held.get(), *before);
    return false;
  }
  above.folder = std::move(opened);
  return true;
}

/// The folder that holds the item stays open: reopening it through ".." could not be checked against an
/// identity. The mode of a folder is restored before it is closed, as it may not be found again.
void FolderRemoval::closeFarthest() {
  if (levels_.size() <= kMostOpen + 1) return;
  Level& farthest = levels_[levels_.size() - 1 - kMostOpen];
  restoreMode(farthest);
  farthest.folder.reset();
}

/// True if an item that was found by name in this folder may be removed or entered.
bool FolderRemoval::mayTouch(const ItemIdentity& identity) {
  if (isAtItem()) {
    if (identity.isSameAs(item_)) return true;
    fail(ESTALE);
    return false;
  }
  const ItemIdentity& folder = here().identity;
  if (identity.isMountRoot || identity.mount != folder.mount) {
    fail(EBUSY);
  } else if (identity.isDirectory() && identity.number.device != folder.number.device) {
    // Directories only: a file of an overlay may report the device of its layer.
    fail(EXDEV);
  } else if (policy_.protects(identity.number) || !policy_.trustsItemOf(identity.uid)) {
    if (error_ == 0) isRefused_ = true;
    if (error_ == 0 && !policy_.protects(identity.number)) stranger_ = identity.uid;
    fail(EPERM);
  } else {
    return true;
  }
  return false;
}

void FolderRemoval::fail(int error) {
  if (error_ == 0) error_ = error;
  here().hasFailed = true;
}

/// Below the item, another process may have removed the entry in the meantime.
void FolderRemoval::failByName(int error) {
  if (error != ENOENT || isAtItem()) fail(error);
}

}  // namespace sorrel
