#include "SorrelFramework/Clean/TrashRemains.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstddef>
#include <optional>
#include <utility>

#include "SorrelFramework/Clean/FileRemover.hpp"
#include "SorrelFramework/Platform/DesktopTrash.hpp"
#include "SorrelFramework/Platform/FileDescriptor.hpp"
#include "SorrelFramework/Platform/FileStatus.hpp"
#include "SorrelFramework/Platform/FolderListing.hpp"

namespace sorrel {
namespace {

FileDescriptor openFolder(const std::string& path) {
  return FileDescriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

/// The names in a folder; nothing if it can't be read to its end.
std::optional<std::vector<std::string>> namesIn(int folder) {
  FolderStream stream;
  FolderListing listing;
  if (folder < 0 || !listing.read(stream, folder)) return std::nullopt;
  std::vector<std::string> names;
  for (std::size_t i = 0; i < listing.size(); ++i) names.emplace_back(listing.name(i));
  return names;
}

bool isMissing(int folder, const std::string& name) {
  return !statusOf(folder, name.c_str()) && errno == ENOENT;
}

/// An item that a scan does not list: anything of no size, and a folder with nothing in it.
bool isWithoutBytes(int files, const std::string& name) {
  const auto status = statusOf(files, name.c_str());
  if (!status) return false;
  if (!status->isDirectory()) return status->size == 0;
  const FileDescriptor folder = openFolderIn(files, name.c_str());
  const auto entries = namesIn(folder.get());
  return entries && entries->empty();
}

/// The remains of one trash.
class Emptying {
 public:
  Emptying(DesktopTrash trash, const FileRemover::Session& removal, std::vector<std::string>& failures)
      : trash_(std::move(trash)),
        removal_(removal),
        failures_(failures),
        files_(openFolder(trash_.filesFolder())) {}

  void run() {
    removeItemsWithoutBytes();
    removeLonelyInfos();
    removeExpunged();
    removal_.finish();
    const auto isGone = [this](const std::string& name) { return isMissing(files_.get(), name); };
    if (files_.isOpen() && !trash_.removeSizes(isGone))
      failures_.push_back(trash_.folder() + "/directorysizes");
  }

 private:
  void removeItemsWithoutBytes() {
    for (const std::string& name : namesIn(files_.get()).value_or(std::vector<std::string>())) {
      if (isWithoutBytes(files_.get(), name)) remove(trash_.filesFolder() + '/' + name);
    }
  }

  void removeLonelyInfos() {
    const FileDescriptor infos = openFolder(trash_.infoFolder());
    for (const std::string& entry : namesIn(infos.get()).value_or(std::vector<std::string>())) {
      const auto item = DesktopTrash::itemOfInfo(entry);
      if (!item || !isMissing(files_.get(), std::string(*item))) continue;
      removal_.forgetTrashed(URL::fileURL(trash_.filesFolder() + '/' + std::string(*item), false));
      if (!isMissing(infos.get(), entry)) failures_.push_back(trash_.infoFolder() + '/' + entry);
    }
  }

  void removeExpunged() {
    const FileDescriptor expunged = openFolder(trash_.expungedFolder());
    for (const std::string& name : namesIn(expunged.get()).value_or(std::vector<std::string>())) {
      remove(trash_.expungedFolder() + '/' + name);
    }
  }

  void remove(const std::string& path) {
    if (removal_.removeItem(URL::fileURL(path, false))) failures_.push_back(path);
  }

  DesktopTrash trash_;
  const FileRemover::Session& removal_;
  std::vector<std::string>& failures_;
  FileDescriptor files_;
};

}  // namespace

std::vector<std::string> TrashRemains::remove(const std::vector<URL>& roots) {
  std::vector<std::string> failures;
  std::optional<FileRemover::Session> removal;
  for (const URL& root : roots) {
    auto trash =
        root.isFileURL() && !root.isEmptyPath() ? DesktopTrash::withFiles(root.path()) : std::nullopt;
    if (!trash) continue;
    if (!removal) removal = FileRemover::shard().begin();
    Emptying(*std::move(trash), *removal, failures).run();
  }
  return failures;
}

}  // namespace sorrel
