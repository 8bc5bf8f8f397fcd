#include "SorrelFramework/Clean/FileRemover.hpp"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

#include "SorrelFramework/Clean/ProtectedPlaces.hpp"
#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Files/RemovalErrorText.hpp"
#include "SorrelFramework/Removal/LookupError.hpp"

namespace sorrel {
namespace {

/// The removal accepts normal paths only. Repeated slashes and "." do not change where a path leads; ".."
/// after a link may, so it stays.
std::string normalPath(std::string_view path) {
  std::string normal;
  while (!path.empty()) {
    const std::string_view component = path.substr(0, path.find('/'));
    path.remove_prefix(std::min(component.size() + 1, path.size()));
    if (component.empty() || component == ".") continue;
    normal.append("/").append(component);
  }
  return normal;
}

}  // namespace

FileRemover::Session::Session(RemoveFunc remove)
    : remove_(std::move(remove)),
      policy_(std::make_unique<RemovalPolicy>(RemovalPolicy::forUser())),
      remover_(std::make_unique<TreeRemover>(*policy_)),
      trash_(std::make_unique<TrashRecords>(*policy_)) {
  protectPlacesOfHost(*policy_);
  if (FileRemover::switches.opensOwnFolders) policy_->openOwnFolders();
}

std::optional<std::string> FileRemover::Session::removeItem(const URL& url) const {
  return outcomeOf(url, remove_ ? errorOfReplacedRemoval(url) : errorOfRemoval(url));
}

std::optional<std::string> FileRemover::Session::removeItemWithoutBytes(const URL& url,
                                                                        const ItemNumber& expected) const {
  return outcomeOf(url, remove_ ? errorOfReplacedRemoval(url) : errorOfRemovalWithoutBytes(url, expected));
}

std::optional<std::string> FileRemover::Session::outcomeOf(const URL& url, int error) const {
  if (error != 0) return removalErrorText(url.lastPathComponent(), error);
  forgetTrashed(url);
  return std::nullopt;
}

void FileRemover::Session::forgetTrashed(const URL& url) const {
  if (CleanFence::placeError(url) == 0) trash_->forget(normalPath(url.path()));
}

void FileRemover::Session::finish() const { trash_->finish(); }

/// The fence checks the item that is held open, as the path may lead elsewhere a moment later.
int FileRemover::Session::errorOfRemoval(const URL& url) const {
  if (const int error = CleanFence::placeError(url); error != 0) return error;
  RemovalTarget item = find(url);
  const int refusal = refusalOf(url, item);
  return refusal != 0 ? refusal : remover_->remove(std::move(item)).error;
}

int FileRemover::Session::errorOfRemovalWithoutBytes(const URL& url, const ItemNumber& expected) const {
  if (const int error = CleanFence::placeError(url); error != 0) return error;
  RemovalTarget item = find(url);
  if (const int refusal = refusalOf(url, item); refusal != 0) return refusal;
  if (item.error() == 0 && item.identity().number != expected) return ESTALE;
  return remover_->removeWithoutBytes(std::move(item)).error;
}

RemovalTarget FileRemover::Session::find(const URL& url) const {
  return remover_->find(normalPath(url.path()));
}

int FileRemover::Session::refusalOf(const URL& url, const RemovalTarget& item) const {
  return item.error() == 0 ? fence_.error(normalPath(url.path()), item) : fence_.error(url);
}

int FileRemover::Session::errorOfReplacedRemoval(const URL& url) const {
  const int refusal = fence_.error(url);
  return refusal != 0 ? refusal : remove_(normalPath(url.path()), *policy_).error;
}

int FileRemover::Session::refusal(const URL& url) const {
  if (const int error = fence_.error(url); error != 0) return error;
  if (policy_->error() != 0) return policy_->error();
  errno = ENOENT;  // as for a path that names nothing
  const std::optional<FileStatus> item = statusOf(url.path());
  if (!item) return tellsOfNoPlace(errno) ? 0 : errno;
  return policy_->protects({item->device, item->inode}) ? EPERM : 0;
}

constinit FileRemover::Switches FileRemover::switches;

FileRemover& FileRemover::shard() {
  static FileRemover& remover = *new FileRemover();  // a clean may outlive the end of main()
  return remover;
}

FileRemover::Session FileRemover::begin() const {
  const std::lock_guard lock(mutex_);
  if (remove_) return Session(remove_);
  return Session(nullptr);
}

void FileRemover::setRemoveForTesting(RemoveFunc remove) {
  const std::lock_guard lock(mutex_);
  remove_ = std::move(remove);
}

}  // namespace sorrel
