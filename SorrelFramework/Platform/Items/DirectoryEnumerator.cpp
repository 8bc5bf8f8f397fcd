#include "SorrelFramework/Platform/Items/DirectoryEnumerator.hpp"

#include <cerrno>
#include <utility>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Machine/ScanRoot.hpp"

namespace sorrel {

bool isMet(std::string_view name, EnumerationOptions options) {
  return (options & NSDirectoryEnumerationSkipsHiddenFiles) == 0 || !isHiddenName(name);
}

bool isEntered(std::string_view name, const FileStatus& status, EnumerationOptions options) {
  if (!status.isDirectory() || (options & NSDirectoryEnumerationSkipsSubdirectoryDescendants) != 0)
    return false;
  return (options & NSDirectoryEnumerationSkipsPackageDescendants) == 0 || !isPackage(name, status);
}

DirectoryEnumerator::DirectoryEnumerator(const URL& root, EnumerationOptions options,
                                         EnumerationErrorHandler errorHandler)
    : options_(options), errorHandler_(std::move(errorHandler)) {
  const URL place = Host::current().followingLinks(root);
  FileDescriptor folder = openFolder(place.path());
  if (!folder.isOpen()) {
    if (errorHandler_ && errno != ENOENT && errno != ENOTDIR) errorHandler_(root, errno);
    return;
  }
  folders_.pushRoot(std::move(folder));
  urlText_ = place.absoluteString();
  if (!urlText_.ends_with('/')) urlText_ += '/';
  readTop();
}

const DirectoryEnumerator::Item* DirectoryEnumerator::next() {
  if (mayEnter_ && !skips_) enterPresentItem();
  mayEnter_ = skips_ = false;
  while (used_ > 0) {
    Level& top = *levels_[used_ - 1];
    if (top.next == top.listing.size()) {
      leaveTop();
      continue;
    }
    const std::string_view name = top.listing.name(top.next++);
    if (!isMet(name, options_)) continue;
    const auto status = statusOf(folders_.top(), name.data());
    if (!status) continue;
    item_.status = *status;
    item_.name = name;
    std::string tail = percentEncodedPath(name);
    if (status->isDirectory()) tail += '/';
    item_.url = URL::fromEncodedPieces(urlText_, tail);
    level_ = static_cast<int>(used_);
    mayEnter_ = isEntered(name, *status, options_);
    return &item_;
  }
  return nullptr;
}

ResourceValues DirectoryEnumerator::values(ResourceKeys keys) const {
  return resourceValues(item_.url, keys, item_.name, item_.status);
}

void DirectoryEnumerator::enterPresentItem() {
  if (folders_.push(item_.name.c_str())) {
    urlText_ = item_.url.relativeText();
    readTop();
  } else if (errorHandler_ && errno != EXDEV && !errorHandler_(item_.url, errno)) {
    used_ = 0;
  }
}

void DirectoryEnumerator::readTop() {
  if (used_ == levels_.size()) levels_.push_back(std::make_unique<Level>());
  Level& level = *levels_[used_++];
  level.next = 0;
  level.urlLength = urlText_.size();
  if (!level.listing.read(stream_, folders_.top()) && errorHandler_ &&
      !errorHandler_(URL::fromEncodedPieces(urlText_, {}), stream_.error())) {
    used_ = 0;
  }
}

void DirectoryEnumerator::leaveTop() {
  --used_;
  const bool isBack = folders_.pop();
  const int error = errno;
  if (used_ == 0) return;
  Level& top = *levels_[used_ - 1];
  urlText_.resize(top.urlLength);
  // A folder that was moved away while the walk was below it is not found again: its remaining entries are
  // skipped.
  if (isBack) return;
  const bool isLost = OpenFolderLimit::isLackOfDescriptors(error) && top.next < top.listing.size();
  top.next = top.listing.size();
  if (isLost && errorHandler_ && !errorHandler_(URL::fromEncodedPieces(urlText_, {}), error)) used_ = 0;
}

}  // namespace sorrel
