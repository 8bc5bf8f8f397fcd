#include "Tools/ItemAttributes.hpp"

#include <sys/stat.h>

#include <algorithm>

#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Files/FolderStream.hpp"
#include "SorrelFramework/Platform/Items/ContentType.hpp"
#include "SorrelFramework/Platform/Machine/ScanRoot.hpp"
#include "SorrelFramework/Platform/Text/DateText.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"
#include "SorrelFramework/Scan/TreeWalk.hpp"
#include "Tools/ItemKind.hpp"
#include "Tools/LastUse.hpp"

namespace sorrel::tools {
namespace {

constexpr std::string_view kNull = "(null)";
constexpr std::string_view kLastUsed = "kMDItemLastUsedDate";
constexpr std::int64_t kBlock = 512;  // the unit of st_blocks, stat(2)

std::string quoted(std::string_view text) { return '"' + std::string(text) + '"'; }

std::string dateText(std::optional<Date> date) {
  if (!date) return std::string(kNull);
  return formattedDate(*date, "yyyy-MM-dd HH:mm:ss", "en_US_POSIX", "UTC") + " +0000";
}

std::string listText(const std::vector<std::string>& values) {
  std::string text = "(";
  for (const std::string& value : values) {
    if (text.size() > 1) text += ',';
    text += "\n    " + quoted(value);
  }
  return text + "\n)";
}

std::string entryCount(const std::string& folder) {
  const FileDescriptor open = openFolder(folder);
  if (!open.isOpen()) return std::string(kNull);
  FolderStream stream;
  stream.start(open.get());
  std::size_t count = 0;
  while (stream.next() != nullptr) ++count;
  return std::to_string(count);
}

std::string allocatedSize(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return std::string(kNull);
  return std::to_string(std::int64_t{status.st_blocks} * kBlock);
}

}  // namespace

std::optional<std::vector<ItemAttribute>> itemAttributes(const std::string& path) {
  const auto status = statusOf(path);
  if (!status) return std::nullopt;
  const bool isFolder = status->isDirectory();
  const std::string size = std::to_string(isFolder ? sizeOfTree(path, {}) : status->size);
  const std::string changed = dateText(status->modified);
  const std::string created = dateText(status->created);
  std::vector<ItemAttribute> all = {
      {"kMDItemContentCreationDate", created},
      {"kMDItemContentModificationDate", changed},
      {"kMDItemContentType", quoted(contentType(path))},
      {"kMDItemContentTypeTree", listText(contentTypeTree(path))},
      {"kMDItemFSContentChangeDate", changed},
      {"kMDItemFSCreationDate", created},
      {"kMDItemFSNodeCount", isFolder ? entryCount(path) : std::string(kNull)},
      {"kMDItemFSOwnerUserID", std::to_string(status->uid)},
      {"kMDItemFSSize", size},
      {"kMDItemKind", quoted(itemKind(lastPathComponent(path), isFolder))},
      {"kMDItemLogicalSize", size},
      {"kMDItemPhysicalSize", isFolder ? std::string(kNull) : allocatedSize(path)},
  };
  if (const auto used = lastUse(path)) {
    const auto place = std::ranges::lower_bound(all, kLastUsed, {}, &ItemAttribute::name);
    all.insert(place, {kLastUsed, dateText(used)});
  }
  return all;
}

}  // namespace sorrel::tools
