#include "SorrelFramework/Clean/TrashRemains.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <iterator>
#include <optional>
#include <utility>

#include "SorrelFramework/Clean/FileRemover.hpp"
#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Files/FolderListing.hpp"
#include "SorrelFramework/Platform/Items/DirectoryEnumerator.hpp"

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

/// The path of the item of the record at `path`; nothing if that is not the name of a record.
std::optional<std::string> itemOfRecord(const std::string& path) {
  const auto name = DesktopTrash::itemOfInfo(lastPathComponent(path));
  if (!name) return std::nullopt;
  const std::string trash = deletingLastPathComponent(deletingLastPathComponent(path));
  return trash + "/files/" + std::string(*name);
}

std::vector<std::string> namesIn(const std::string& folder) {
  return namesIn(openFolder(folder).get()).value_or(std::vector<std::string>());
}

/// Bytes of the regular files at and below an item; nothing if a part of it can't be read. For an item that
/// is neither a file nor a folder its own size counts, as in a scan.
std::optional<std::int64_t> bytesOf(const std::string& path) {
  const auto status = statusOf(path);
  if (!status) return std::nullopt;
  if (!status->isDirectory()) return status->size;
  std::int64_t bytes = 0;
  bool isWhole = openFolder(path).isOpen();
  DirectoryEnumerator walk(URL::fileURL(path, true), 0, [&isWhole](const URL&, int) {
    isWhole = false;
    return false;
  });
  while (const DirectoryEnumerator::Item* const item = walk.next()) {
    if (item->status.isRegularFile()) bytes = checkedAdd(bytes, item->status.size);
  }
  return isWhole ? std::optional(bytes) : std::nullopt;
}

/// True if the item, once found, is gone now.
bool isRemoved(const FileRemover::Session& removal, const TrashRemains::Item& item) {
  if (item.kind == TrashRemains::Kind::Record) {
    if (const auto trashed = itemOfRecord(item.path)) removal.forgetTrashed(URL::fileURL(*trashed, false));
  } else if (item.kind == TrashRemains::Kind::ItemWithoutBytes) {
    // The removal keeps files that have gained bytes; this check keeps the empty files beside them too.
    if (bytesOf(item.path).value_or(0) != 0) return false;
    static_cast<void>(removal.removeItemWithoutBytes(URL::fileURL(item.path, false), item.number));
  } else {
    static_cast<void>(removal.removeItem(URL::fileURL(item.path, false)));
  }
  return !statusOf(item.path) && errno == ENOENT;
}

}  // namespace

TrashRemains TrashRemains::find(const std::vector<URL>& roots, Date now) {
  TrashRemains remains;
  for (const URL& root : roots) {
    auto trash =
        root.isFileURL() && !root.isEmptyPath() ? DesktopTrash::withFiles(root.path()) : std::nullopt;
    if (trash) remains.look(*std::move(trash), now);
  }
  return remains;
}

void TrashRemains::look(DesktopTrash trash, Date now) {
  for (const std::string& name : namesIn(trash.filesFolder())) {
    std::string path = trash.filesFolder() + '/' + name;
    const auto status = statusOf(path);
    if (status && bytesOf(path) == 0) {
      const ItemNumber number{status->device, status->inode};
      items_.push_back({std::move(path), 0, Kind::ItemWithoutBytes, number});
    } else {
      itemsWithBytes_.push_back(std::move(path));
    }
  }
  const FileDescriptor files = openFolder(trash.filesFolder());
  const FileDescriptor infos = openFolder(trash.infoFolder());
  for (const std::string& entry : namesIn(infos.get()).value_or(std::vector<std::string>())) {
    const auto item = DesktopTrash::itemOfInfo(entry);
    if (!item || !files.isOpen() || !isMissing(files.get(), std::string(*item))) continue;
    const auto status = statusOf(infos.get(), entry.c_str());
    if (!status) continue;
    const bool isYoung = now.secondsSince1970 - status->modified.secondsSince1970 < kSecondsOfMove;
    (isYoung ? youngRecords_ : items_)
        .push_back({trash.infoFolder() + '/' + entry, status->size, Kind::Record, {}});
  }
  for (const std::string& name : namesIn(trash.expungedFolder())) {
    std::string path = trash.expungedFolder() + '/' + name;
    const std::int64_t size = bytesOf(path).value_or(0);
    items_.push_back({std::move(path), size, Kind::Expunged, {}});
  }
  trashes_.push_back(std::move(trash));
}

std::vector<std::string> TrashRemains::remove(const std::function<bool()>& isStopped) const {
  std::vector<std::string> failures;
  if (trashes_.empty()) return failures;
  const FileRemover::Session removal = FileRemover::shard().begin();
  for (const Item& item : items_) {
    if (isStopped && isStopped()) break;
    if (!isRemoved(removal, item)) {
      failures.push_back(item.path);
    } else if (item.kind == Kind::ItemWithoutBytes) {
      if (auto record = TrashRecords::recordLeftBy(item.path)) failures.push_back(*std::move(record));
    }
  }
  removal.finish();
  for (const DesktopTrash& trash : trashes_) {
    const FileDescriptor files = openFolder(trash.filesFolder());
    const auto isGone = [&files](const std::string& name) { return isMissing(files.get(), name); };
    if (files.isOpen() && !trash.removeSizes(isGone)) failures.push_back(trash.folder() + "/directorysizes");
  }
  return failures;
}

std::vector<TrashRemains::Item> TrashRemains::youngRecords() const {
  std::vector<Item> records;
  std::ranges::copy_if(youngRecords_, std::back_inserter(records), [](const Item& record) {
    const auto trashed = itemOfRecord(record.path);
    return statusOf(record.path) && trashed && !statusOf(*trashed);
  });
  return records;
}

std::vector<std::string> TrashRemains::itemsThatStayed() const {
  std::vector<std::string> stayed;
  std::ranges::copy_if(itemsWithBytes_, std::back_inserter(stayed),
                       [](const std::string& path) { return statusOf(path).has_value(); });
  return stayed;
}

}  // namespace sorrel
