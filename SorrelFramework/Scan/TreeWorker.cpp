#include "SorrelFramework/Scan/TreeWorker.hpp"

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Scan/UnreadFolders.hpp"

namespace sorrel {
namespace {

/// From this many folders on, a walk is worth the help of other threads.
constexpr std::size_t kLargeWalk = 32;

/// Path of an open folder; "" if the system does not report it.
std::string pathOf(int folder) {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(folder), error).string();
}

/// The position that a filter sees.
class ItemPosition final : public EnumerationPosition {
 public:
  explicit ItemPosition(int itemLevel) { level_ = itemLevel; }
  [[nodiscard]] bool skips() const noexcept { return skips_; }
};

}  // namespace

void WalkFolder::addBytes(std::int64_t count) {
  static_cast<void>(checkedAdd(bytes.fetch_add(count, std::memory_order_relaxed), count));
}

std::deque<WalkFolder>& TreeJob::newArena() {
  const std::lock_guard lock(mutex_);
  return arenas_.emplace_back();
}

void TreeJob::addFiles(std::int64_t bytes, Integer count) {
  const std::lock_guard lock(mutex_);
  fileBytes_ = checkedAdd(fileBytes_, bytes);
  fileCount_ = checkedAdd(fileCount_, count);
}

void TreeJob::report(const URL& url, int error) {
  note(url.path(), error);
  if (!request.errorHandler || error == EXDEV) return;
  const std::lock_guard lock(mutex_);
  if (!request.errorHandler(url, error)) ended_.store(true);
}

void TreeJob::note(const std::string& path, int error) {
  if (!request.unread || !UnreadFolders::isReason(error)) return;
  const std::lock_guard lock(mutex_);
  request.unread(path, error);
}

TreeWorker::TreeWorker(TreeJob& job)
    : job_(job),
      arena_(job.newArena()),
      folders_([&job] { return job.isStopped(); }),
      progress_(job.request.progress) {}

TreeWorker::~TreeWorker() = default;

void TreeWorker::run(WalkWork work) {
  folders_.pushRoot(std::move(work.folder));
  Frame& root = newFrame(work.result, work.level, work.makesRecords(), work.wantsBytes);
  urlText_ = std::move(work.urlText);
  root.urlLength = urlText_.size();
  readFolder(root);
  while (used_ > 0) {
    Frame& frame = *frames_[used_ - 1];
    if (job_.team.wantsWork()) giveAway();
    if (frame.next == frame.pending.size() || job_.isStopped()) {
      leave();
    } else {
      enter(frame, frame.pending[frame.next++]);
    }
    progress_.tick();
  }
  progress_.flush();
  job_.addFiles(std::exchange(fileBytes_, 0), std::exchange(fileCount_, 0));
}

TreeWorker::Frame& TreeWorker::newFrame(WalkFolder* result, int level, bool makesRecords, bool wantsBytes) {
  if (used_ == frames_.size()) frames_.push_back(std::make_unique<Frame>());
  Frame& frame = *frames_[used_++];
  frame.names.clear();
  frame.pending.clear();
  frame.next = 0;
  frame.urlLength = 0;
  frame.result = result;
  frame.level = level;
  frame.makesRecords = makesRecords;
  frame.wantsBytes = wantsBytes;
  return frame;
}

void TreeWorker::enter(const Frame& above, const Pending& pending) {
  const char* name = above.names.data() + pending.name;
  if (!folders_.push(name)) {
    const int error = errno;
    if (job_.isStopped() || OpenFolderLimit::isLackOfDescriptors(error))
      pending.result->isCut.store(true, std::memory_order_relaxed);
    reportUnreadable(above, folders_.top(), pending, error);
    return;
  }
  Frame& frame = newFrame(pending.result, above.level + 1, pending.makesRecords, pending.wantsBytes);
  if (pending.makesRecords) {
    urlText_.resize(above.urlLength);
    appendPercentEncodedPath(urlText_, name);
    urlText_ += '/';
    frame.urlLength = urlText_.size();
  }
  readFolder(frame);
}

void TreeWorker::readFolder(Frame& frame) {
  if (++visited_ == kLargeWalk && onLargeWalk) onLargeWalk();
  if (frame.makesRecords) {
    recordFolder(frame);
  } else {
    sizeFolder(frame);
  }
}

void TreeWorker::sizeFolder(Frame& frame) {
  const int folder = folders_.top();
  std::int64_t bytes = 0;
  int error = 0;
  stream_.start(folder);
  while (const FolderStream::Entry* entry = stream_.next()) {
    if (job_.isStopped()) {
      frame.result->isCut.store(true, std::memory_order_relaxed);
      break;
    }
    if (entry->type != FolderStream::Type::Directory) {
      const auto status = statusOf(folder, entry->name);
      if (!status) {
        if (errno != ENOENT) error = errno;
        continue;
      }
      if (!status->isDirectory()) {
        bytes = checkedAdd(bytes, status->size);
        continue;
      }
    }
    keepForLater(frame, {entry->name, entry->length}, frame.result, false, true);
  }
  frame.result->addBytes(bytes);
  reportTop(frame, stream_.error() != 0 ? stream_.error() : error);
}

void TreeWorker::recordFolder(Frame& frame) {
  const int folder = folders_.top();
  int error = listing_.read(stream_, folder) ? 0 : stream_.error();
  const FolderRights rights = FolderRights::of(folder);
  frame.result->items.reserve(listing_.size());
  std::int64_t bytes = 0;
  for (std::size_t i = 0; i < listing_.size(); ++i) {
    if (job_.isStopped()) {
      frame.result->isCut.store(true, std::memory_order_relaxed);
      break;
    }
    const std::string_view name = listing_.name(i);
    const auto status = statusOf(folder, name.data());
    if (!status) {
      if (errno != ENOENT) error = errno;
      continue;
    }
    if (!status->isDirectory() && frame.wantsBytes) bytes = checkedAdd(bytes, status->size);
    if (isMet(name, job_.request.options)) {
      recordItem(frame, name, *status, rights);
    } else if (status->isDirectory() && frame.wantsBytes) {
      keepForLater(frame, name, frame.result, false, true);
    }
  }
  frame.result->addBytes(bytes);
  reportTop(frame, error);
}

void TreeWorker::recordItem(Frame& frame, std::string_view name, const FileStatus& status,
                            const FolderRights& rights) {
  const WalkRequest& request = job_.request;
  tail_.clear();
  appendPercentEncodedPath(tail_, name);
  if (status.isDirectory()) tail_ += '/';
  const URL url = URL::fromEncodedPieces(urlOf(frame), tail_);
  ResourceValues values = resourceValues(url, request.keys, name, status);
  ItemPosition position(frame.level);
  const bool kept = request.filter(url, values, &position);
  const Integer kind = kindOf(values);
  const std::int64_t ownSize = values.fileSize.value_or(kDefaultRecordSize);

  Ref<FileInformation> record;
  if (kept && kind == rawValue(FilesKind::File)) {
    const std::int64_t size = status.isDirectory() ? kDefaultRecordSize : status.size;
    fileBytes_ = checkedAdd(fileBytes_, size);
    ++fileCount_;
    if (size > 0 || request.isContainZeroItem) {
      record = makeRecord(request.record, url, values, kind, size, deletion_.canDelete(rights, status.uid));
    }
  } else if (kept) {
    record = makeRecord(request.record, url, values, kind, 0, deletion_.canDelete(rights, status.uid));
  }
  if (kept) progress_.add(url, ownSize);

  WalkFolder* below = nullptr;
  if (status.isDirectory()) {
    const bool entered = isEntered(name, status, request.options) && !position.skips();
    const bool sized = frame.wantsBytes || (kept && kind != rawValue(FilesKind::File));
    if (entered || sized) {
      below = &arena_.emplace_back();
      keepForLater(frame, name, below, entered, sized);
    }
  }
  if (record || below != nullptr) frame.result->items.push_back({std::move(record), below});
}

void TreeWorker::keepForLater(Frame& frame, std::string_view name, WalkFolder* result, bool makesRecords,
                              bool wantsBytes) {
  frame.pending.push_back({frame.names.size(), result, makesRecords, wantsBytes});
  frame.names.append(name.data(), name.size() + 1);  // both sources of names end them with NUL
}

void TreeWorker::giveAway() {
  if (OpenFolderLimit::isShort()) return;  // a folder given away keeps a descriptor until it is taken
  // The topmost folder has the largest subtrees.
  for (std::size_t i = 0; i < used_; ++i) {
    Frame& frame = *frames_[i];
    if (frame.next == frame.pending.size() || folders_.at(i) < 0) continue;
    const Pending pending = frame.pending.back();
    const char* name = frame.names.data() + pending.name;
    WalkWork work{
        openFolderIn(folders_.at(i), name), pending.result, {}, frame.level + 1, pending.wantsBytes};
    const int error = errno;
    if (!OpenFolderLimit::leavesRoom(work.folder, error)) return OpenFolderLimit::lower();
    frame.pending.pop_back();
    if (!work.folder.isOpen()) {
      reportUnreadable(frame, folders_.at(i), pending, error);
      return;
    }
    if (pending.makesRecords) work.urlText.append(urlOf(frame)).append(percentEncodedPath(name)) += '/';
    job_.team.give(std::move(work));
    return;
  }
}

void TreeWorker::leave() {
  cutOff(*frames_[--used_]);
  if (folders_.pop() || used_ == 0) return;
  const int error = errno;
  // A folder that was moved away while the walk was below it is not found again.
  Frame& frame = *frames_[used_ - 1];
  if (frame.next < frame.pending.size()) reportTop(frame, error);
  cutOff(frame);
}

void TreeWorker::cutOff(Frame& frame) {
  for (; frame.next < frame.pending.size(); ++frame.next)
    frame.pending[frame.next].result->isCut.store(true, std::memory_order_relaxed);
}

void TreeWorker::reportUnreadable(const Frame& above, int folder, const Pending& pending, int error) {
  const char* name = above.names.data() + pending.name;
  if (pending.makesRecords) {
    job_.report(URL::fromEncodedPieces(urlOf(above), percentEncodedPath(name) + '/'), error);
  } else if (job_.request.unread) {
    job_.note(pathOf(folder) + '/' + name, error);
  }
}

void TreeWorker::reportTop(const Frame& frame, int error) {
  if (error == 0) return;
  if (frame.makesRecords) {
    job_.report(URL::fromEncodedPieces(urlOf(frame), {}), error);
  } else if (job_.request.unread) {
    job_.note(pathOf(folders_.top()), error);
  }
}

}  // namespace sorrel
