#include "SorrelFramework/Clean/TrashRecords.hpp"

#include <fcntl.h>

#include <cstddef>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "SorrelFramework/Platform/Files/FileStatus.hpp"

namespace sorrel {
namespace {

/// The folder two levels above an item: the trash, for an item of `files` or `info`.
const ItemIdentity* trashAbove(const RemovalTarget& target) {
  const std::vector<ItemIdentity>& chain = target.chain();
  return chain.size() < 2 ? nullptr : &chain[chain.size() - 2];
}

/// The folder `name` of an open folder; nothing if it is a link.
std::optional<ItemIdentity> folderIn(int parent, const char* name) {
  const FileDescriptor folder(::openat(parent, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  return folder.isOpen() ? identityOf(folder.get()) : std::nullopt;
}

/// True if `info` lies in the folder `info` of the trash whose folder `files` held `item`. The user may own
/// links on the path, which a look-up by path would follow.
bool isInInfoFolderBeside(const RemovalTarget& item, const RemovalTarget& info) {
  const FileDescriptor trash(::openat(item.folder(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
  const auto opened = trash.isOpen() ? identityOf(trash.get()) : std::nullopt;
  const ItemIdentity* const above = trashAbove(item);
  if (!opened || above == nullptr || !opened->isSameAs(*above)) return false;
  const auto files = folderIn(trash.get(), "files");
  const auto infos = folderIn(trash.get(), "info");
  if (!files || !infos || infos->number == files->number || infos->mount != files->mount) return false;
  return files->isSameAs(item.chain().back()) && infos->isSameAs(info.chain().back());
}

}  // namespace

void TrashRecords::forget(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return;
  Known* const known = trashWithFiles(path.substr(0, slash));
  if (known == nullptr) return;
  const RemovalTarget item = items_.find(path);
  const ItemIdentity* const trash = trashAbove(item);
  if (!item.isAbsent() || trash == nullptr || trash->number != known->number) return;
  removeInfo(*known, item);
  known->gone.insert(path.substr(slash + 1));
}

std::optional<std::string> TrashRecords::recordLeftBy(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos || statusOf(path)) return std::nullopt;
  const auto trash = DesktopTrash::withFiles(path.substr(0, slash));
  if (!trash) return std::nullopt;
  std::string info = trash->infoFile(path.substr(slash + 1));
  return statusOf(info) ? std::optional(std::move(info)) : std::nullopt;
}

void TrashRecords::finish() {
  for (auto& [files, known] : known_) {
    if (known.gone.empty()) continue;
    const std::set<std::string>& gone = known.gone;
    // A line that could not be removed is stale, and other programs ignore stale lines.
    static_cast<void>(
        known.trash->removeSizes([&gone](const std::string& name) { return gone.contains(name); }));
    known.gone.clear();
  }
}

TrashRecords::Known* TrashRecords::trashWithFiles(const std::string& files) {
  if (!files.ends_with("/files")) return nullptr;
  const auto [entry, isNew] = known_.try_emplace(files);
  Known& known = entry->second;
  if (isNew) {
    known.trash = DesktopTrash::withFiles(files);
    const auto status = known.trash ? statusOf(known.trash->folder()) : std::nullopt;
    if (status) known.number = {status->device, status->inode};
    if (!status) known.trash.reset();
  }
  return known.trash ? &known : nullptr;
}

/// Removes only a file or a link.
void TrashRecords::removeInfo(const Known& known, const RemovalTarget& item) {
  RemovalTarget info = infos_.find(known.trash->infoFile(item.leaf()));
  if (info.error() != 0 || info.identity().isDirectory()) return;
  if (!isInInfoFolderBeside(item, info)) return;
  static_cast<void>(infos_.remove(std::move(info)));
}

}  // namespace sorrel
