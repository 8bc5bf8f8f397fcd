#include "SorrelFramework/Scan/Duplicate/DuplicateWalk.hpp"

#include <cerrno>
#include <cstddef>
#include <optional>
#include <utility>

#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Items/ContentType.hpp"
#include "SorrelFramework/Platform/Items/ResourceValues.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Machine/ScanRoot.hpp"
#include "SorrelFramework/Scan/ScanPlaces.hpp"
#include "SorrelFramework/Scan/UnreadFolders.hpp"

namespace sorrel {
namespace {

constexpr std::string_view kCache = "/Cache";
constexpr std::size_t kLengthOfLibrary = std::string_view("Library").size();  // in any letter case
constexpr std::int64_t kWeightOfTypeByte = 1024;

/// Two packages of one type weigh the same, whatever they contain.
std::int64_t weightOfType(std::string_view type) {
  std::int64_t weight = 0;
  for (const char byte : type) weight += static_cast<unsigned char>(byte) * kWeightOfTypeByte;
  return weight;
}

/// Direct entries of a folder; nothing, with errno, if it can't be read.
std::optional<std::int64_t> countEntries(FolderStream& stream, int parent, const char* name) {
  const FileDescriptor folder = openFolderIn(parent, name);
  if (!folder.isOpen()) return std::nullopt;
  std::int64_t count = 0;
  stream.start(folder.get());
  while (stream.next() != nullptr) ++count;
  return count;
}

}  // namespace

DuplicateWalk::DuplicateWalk(const DuplicateWalkRules& rules, Sink sink)
    : rules_(rules), sink_(std::move(sink)) {}

DuplicateInfo DuplicateWalk::fileInfo(const URL& url) {
  DuplicateInfo info{1, 0, url, true, {}};
  const auto values = resourceValues(url, NSURLFileSizeKey);
  if (!values || !values->fileSize) return info;
  info.fileSize = *values->fileSize;
  if (rules_.limit < info.fileSize) sink_(info);
  return info;
}

DuplicateInfo DuplicateWalk::folderBackTracking(const URL& url) {
  DuplicateInfo result{0, 0, url, false, {}};
  path_ = url.path();
  FileDescriptor root = openFolder(path_);
  if (!root.isOpen()) {
    reportUnread(path_, errno);
    return result;
  }
  const std::string& volume = Host::current().root();
  layoutOffset_ = path_.starts_with(volume) ? volume.size() : 0;
  sizes_ = std::make_shared<WalkedSizes>();
  folders_.pushRoot(std::move(root));
  used_ = 0;
  enterTop();
  while (used_ > 0) {
    if (top().next == top().listing.size()) {
      leaveTop(result);
    } else {
      visitNext();
    }
  }
  folders_.clear();
  return result;
}

/// Starts the level of the folder at path_ that folders_ has just entered.
void DuplicateWalk::enterTop() {
  if (used_ == levels_.size()) levels_.push_back(std::make_unique<Level>());
  Level& level = *levels_[used_++];
  level.next = 0;
  level.pathLength = path_.size();
  level.firstBelow = sizes_->folders.size();
  level.weight = {};
  weighFiles();
}

/// The order of files does not change their sum, so the folder is read once, and the listing keeps only what
/// must be visited in the order of names: folders and candidates.
void DuplicateWalk::weighFiles() {
  FolderListing& listing = top().listing;
  int error = 0;
  listing.clear();
  stream_.start(folders_.top());
  while (const FolderStream::Entry* entry = stream_.next()) {
    if (isStopped()) return listing.clear();
    if (isHiddenName({entry->name, entry->length})) continue;
    if (entry->type == FolderStream::Type::Directory) {
      listing.add(*entry);
      continue;
    }
    const auto status = statusOf(folders_.top(), entry->name);
    if (!status && UnreadFolders::isReason(errno)) error = errno;
    if (status && status->isDirectory()) {
      listing.add({entry->name, entry->length, FolderStream::Type::Directory});
      continue;
    }
    const std::int64_t size = status ? status->size : 0;  // a file that is gone by now still counts
    add({1, size});
    if (rules_.limit < size) listing.add(*entry, size);
  }
  listing.sort();
  reportUnread(path_, stream_.error() != 0 ? stream_.error() : error);
}

void DuplicateWalk::leaveTop(DuplicateInfo& result) {
  Level& level = top();
  path_.resize(level.pathLength);
  const Weight weight = level.weight;
  const std::size_t first = level.firstBelow;
  const SubfolderSizes below(sizes_, first, sizes_->folders.size());
  --used_;
  const bool isBack = folders_.pop();
  const int error = errno;
  if (used_ > 0) {
    sizes_->folders.push_back({weight.bytes, first});
    add(weight);
    // A folder that was moved away while the walk was below it is not found again: its remaining entries are
    // skipped.
    if (!isBack) passOver(error);
  }
  const bool isCandidate = rules_.limit < weight.bytes;
  if (!isCandidate && used_ > 0) return;
  DuplicateInfo info{weight.files, weight.bytes, URL::fileURL(path_, true), false, below};
  if (used_ == 0) result = info;
  if (isCandidate) sink_(std::move(info));
}

void DuplicateWalk::passOver(int error) {
  Level& level = top();
  if (level.next < level.listing.size()) reportUnread(path_.substr(0, level.pathLength), error);
  level.next = level.listing.size();
}

void DuplicateWalk::visitNext() {
  Level& level = top();
  if (isStopped()) {
    level.next = level.listing.size();
    return;
  }
  const std::size_t index = level.next++;
  const std::string_view name = level.listing.name(index);
  path_.resize(level.pathLength);
  if (!path_.ends_with('/')) path_ += '/';
  path_ += name;
  if (level.listing.type(index) == FolderStream::Type::Directory) return weighFolder(name);
  sink_({1, level.listing.size(index), URL::fileURL(path_, false), true, {}});
}

void DuplicateWalk::weighFolder(std::string_view name) {
  if (!isWalkedInto(name)) return weighClosedFolder(name);
  if (folders_.push(name.data())) return enterTop();
  const int error = errno;
  if (error == ENOENT) return add(kGoneFolder);
  reportUnread(path_, error);
  sizes_->folders.push_back({0, sizes_->folders.size()});
}

void DuplicateWalk::weighClosedFolder(std::string_view name) {
  const auto entries = countEntries(stream_, folders_.top(), name.data());
  const int error = entries ? stream_.error() : errno;
  if (!entries && error == ENOENT) return add(kGoneFolder);
  reportUnread(path_, error);
  add({entries.value_or(1), weightOfType(contentType(name, true))});
}

void DuplicateWalk::add(Weight weight) {
  Weight& sum = top().weight;
  sum.bytes = checkedAdd(sum.bytes, weight.bytes);
  sum.files = checkedAdd(sum.files, weight.files);
}

void DuplicateWalk::reportUnread(const std::string& path, int error) const {
  if (rules_.unread && UnreadFolders::isReason(error)) rules_.unread(path, error);
}

bool DuplicateWalk::isStopped() const { return rules_.isStopped && rules_.isStopped(); }

bool DuplicateWalk::isWalkedInto(std::string_view name) const {
  if (!isPlainFolderName(name)) return false;
  if (name.size() == kLengthOfLibrary && rules_.libraries.contains(path_)) return false;
  return std::string_view(path_).substr(layoutOffset_).find(kCache) == std::string_view::npos;
}

}  // namespace sorrel
