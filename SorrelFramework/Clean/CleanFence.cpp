#include "SorrelFramework/Clean/CleanFence.hpp"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string_view>

#include "SorrelFramework/Platform/FileStatus.hpp"
#include "SorrelFramework/Platform/Host.hpp"
#include "SorrelFramework/Platform/Text.hpp"

namespace sorrel {
namespace {

bool isBelowByName(const std::string& path, const std::string& root) {
  if (!path.starts_with(root + "/")) return false;
  const std::vector<std::string> names = componentsSeparatedBy(path, "/");
  return std::ranges::find(names, "..") == names.end();
}

}  // namespace

CleanFence::CleanFence() : root_(Host::current().root()), currentFolders_(foldersUpFrom(".")) {}

int CleanFence::error(const URL& url) const {
  if (!url.isFileURL() || url.isEmptyPath()) return EINVAL;
  const std::string path = url.path();
  if (path.empty()) return EINVAL;
  if (!root_.empty() && isOutsideRoot(path)) return EACCES;
  const std::optional<FileStatus> item = statusOf(path);
  if (!item || !item->isDirectory()) return 0;
  const FolderIdentity folder{item->device, item->inode};
  return std::ranges::find(currentFolders_, folder) == currentFolders_.end() ? 0 : EBUSY;
}

bool CleanFence::isOutsideRoot(const std::string& path) const {
  const int containment = containmentError(path, root_);
  if (containment == 0) return false;
  // What can't be reached from here is gone, or the helper's business: then the names must do.
  return containment == EXDEV || !isBelowByName(path, root_);
}

}  // namespace sorrel
