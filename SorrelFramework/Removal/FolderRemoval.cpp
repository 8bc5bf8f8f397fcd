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
    // Whatever failed on the way did not stay.
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

/// Enters a folder that its owner, the user, may not read, after giving the owner that right. False if it
/// can't be opened so; then nothing has changed.
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

/// Gives the folder, if it is the user's own, the rights of its owner that it lacks.
void FolderRemoval::openHere() {
  if (policy_.opensOwnFolders()) {
    here().modeBefore = giveOwnerRights(here().folder.get(), policy_.caller());
  }
}

/// A folder that is closed has its mode back already.
void FolderRemoval::restoreMode(const Level& level) {
  if (level.modeBefore && level.folder.isOpen()) setFolderMode(level.folder.get(), *level.modeBefore);
}

/// The item was looked at a moment ago: what opens under its name, past no link and no mount point, is it or
/// is not. False if it can't be told so; then nothing has happened.
bool FolderRemoval::enterItem(const std::string& name) {
  FileDescriptor folder = openFolderIn(here().folder.get(), name.c_str());
  const auto opened = folder.isOpen() ? identityOf(folder.get()) : std::nullopt;
  if (!opened || !mayTouch(*opened)) return opened.has_value();
  goDown(std::move(folder), name, *opened);
  return true;
}

/// Called right after `identity` was taken.
void FolderRemoval::removeOther(const std::string& name, const ItemIdentity& identity) {
  if (mayTouch(identity) && !mustStay(name)) take(name, 0);
}

/// True for a regular file with bytes, if such files stay. The named item itself, such as a link, may be no
/// file: then its own size counts, as in a scan.
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

/// A folder that can't be read may still be empty, and then it may go. The system knows.
void FolderRemoval::removeUnreadable(const std::string& name, const ItemIdentity& identity) {
  const auto now = identityOf(here().folder.get(), name.c_str());
  if (!now) return failByName(errno);
  if (!now->isSameAs(identity)) return fail(ESTALE);
  take(name, AT_REMOVEDIR);
}

/// The one place but removeFinishedFolder() where something is removed.
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

/// Another reading can only help if the last one has changed something.
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

/// The way back is lost: the folder was moved to another place, where nothing is to be removed.
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

/// The folder that holds the item stays open: it can't be checked by the way that led to it. A folder gets
/// its mode back before it is closed, as the way back to it may get lost.
void FolderRemoval::closeFarthest() {
  if (levels_.size() <= kMostOpen + 1) return;
  Level& farthest = levels_[levels_.size() - 1 - kMostOpen];
  restoreMode(farthest);
  farthest.folder.reset();
}

/// Whether something that was found under a name of this folder may be removed or entered.
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
    // Of folders only: a file of an overlay may show the device of the layer that it is in.
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

/// Below the item, somebody else may have removed what was there a moment ago.
void FolderRemoval::failByName(int error) {
  if (error != ENOENT || isAtItem()) fail(error);
}

}  // namespace sorrel
