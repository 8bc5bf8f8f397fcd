#include "SorrelFramework/Clean/CleanFence.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string_view>

#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"
#include "SorrelFramework/Removal/LookupError.hpp"

namespace sorrel {
namespace {

/// True if a URL names an item of this machine, and its path alone identifies the item.
bool hasPlace(const URL& url) {
  if (!url.isFileURL() || url.isEmptyPath()) return false;
  std::string_view text = url.relativeText();
  // "file:///a#1" may have been meant for a file called "a#1" instead of the one called "a".
  if (text.find_first_of("?#") != std::string_view::npos) return false;
  text.remove_prefix(std::string_view("file:").size());
  return !text.starts_with("//") || text.starts_with("///") || text.starts_with("//localhost/");
}

bool isBelowByName(const std::string& path, const std::string& root) {
  if (!path.starts_with(root + "/")) return false;
  const std::vector<std::string> names = componentsSeparatedBy(path, "/");
  return std::ranges::find(names, "..") == names.end();
}

bool mayBeLink(const std::string& path) {
  const std::optional<FileStatus> item = statusOf(path);
  return item ? S_ISLNK(item->mode) : !tellsOfNoPlace(errno);
}

}  // namespace

CleanFence::CleanFence() : root_(Host::current().root()), currentFolders_(foldersUpFrom(".")) {
  if (currentFolders_.empty()) currentError_ = errno;
  // The folder was removed: there is nothing to protect.
  if (currentError_ == ENOENT) currentError_ = 0;
  if (root_.empty()) return;
  const std::vector<FolderIdentity> upFromRoot = foldersUpFrom(root_);
  if (!upFromRoot.empty()) rootFolder_ = upFromRoot.front();
}

int CleanFence::placeError(const URL& url) { return hasPlace(url) && !url.path().empty() ? 0 : EINVAL; }

int CleanFence::error(const URL& url) const {
  if (const int error = placeError(url); error != 0) return error;
  const std::string path = url.path();
  const int outside = root_.empty() ? 0 : outsideError(path);
  return outside != 0 ? outside : currentFolderError(path);
}

int CleanFence::error(const std::string& path, const RemovalTarget& found) const {
  const int outside = root_.empty() ? 0 : outsideError(path, found);
  if (outside != 0 || !found.identity().isDirectory()) return outside;
  return errorOfFolder({found.identity().number.device, found.identity().number.inode});
}

int CleanFence::outsideError(const std::string& path, const RemovalTarget& found) const {
  // A path without links ends where its names say.
  if (!found.isBehindLink() && path.starts_with(root_ + "/")) return 0;
  if (const int error = outsideError(path); error != 0) return error;
  const auto isRoot = [this](const ItemIdentity& folder) {
    return rootFolder_ == FolderIdentity{folder.number.device, folder.number.inode};
  };
  return std::ranges::any_of(found.chain(), isRoot) ? 0 : EACCES;
}

/// If the item is unreachable, because an ancestor is gone or only the helper may enter it, its nearest
/// reachable ancestor decides; the rest of the path is compared as text. Unless that ancestor is a link: its
/// target is unknown.
int CleanFence::outsideError(const std::string& path) const {
  std::string at = path;
  do {
    const int containment = containmentError(at, root_);
    if (containment == 0) return at != path && mayBeLink(at) ? EACCES : 0;
    if (containment == EXDEV) return EACCES;
    if (!tellsOfNoPlace(containment)) return containment;
    at = deletingLastPathComponent(at);
  } while (isBelowByName(at, root_));
  // The root itself is gone, or the names lead out of it.
  return isBelowByName(path, root_) ? 0 : EACCES;
}

int CleanFence::currentFolderError(const std::string& path) const {
  errno = ENOENT;  // as for a path that names nothing
  const std::optional<FileStatus> item = statusOf(path);
  if (!item) return tellsOfNoPlace(errno) ? 0 : errno;
  return item->isDirectory() ? errorOfFolder({item->device, item->inode}) : 0;
}

int CleanFence::errorOfFolder(const FolderIdentity& folder) const {
  if (currentError_ != 0) return currentError_;
  return std::ranges::find(currentFolders_, folder) == currentFolders_.end() ? 0 : EBUSY;
}

}  // namespace sorrel
