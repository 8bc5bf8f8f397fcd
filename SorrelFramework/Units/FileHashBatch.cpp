#include "SorrelFramework/Units/FileHashBatch.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "SorrelFramework/Platform/Digest/Digest.hpp"
#include "SorrelFramework/Platform/Digest/MD5Lanes.hpp"
#include "SorrelFramework/Platform/Files/FileReadStream.hpp"
#include "SorrelFramework/Platform/Files/OpenFolderLimit.hpp"
#include "SorrelFramework/Units/StreamFileHash.hpp"

namespace sorrel {

/// One run(): the files in its lanes.
class FileHashBatch::Worker {
 public:
  explicit Worker(FileHashBatch& batch) : batch_(batch), lanes_(batch.kernel_) {}

  void run() {
    for (;;) {
      fillIdleLanes();
      if (busy_ == 0) return;
      for (std::size_t lane = 0; lane < batch_.share_; ++lane) {
        if (!feed(lane)) return;
      }
      if (busy_ == 0) continue;
      lanes_.run();
      for (std::size_t lane = 0; lane < batch_.share_; ++lane) {
        if (lanes_.isDone(lane)) finish(lane);
      }
    }
  }

 private:
  struct File {
    std::size_t index = 0;
    SharedReadStream stream;
  };

  void fillIdleLanes() {
    for (std::size_t lane = 0; lane < batch_.share_; ++lane) {
      while (!lanes_.isBusy(lane)) {
        const auto index = waiting_ ? std::exchange(waiting_, std::nullopt) : batch_.next();
        if (!index) return;
        const auto lack = busy_ > 0 ? SharedReadStream::Lack::Fails : SharedReadStream::Lack::Waits;
        files_[lane] = {*index, batch_.open(*index, lack)};
        if (files_[lane].stream.isOpen()) {
          lanes_.start(lane);
          ++busy_;
        } else if (busy_ > 0 && OpenFolderLimit::isLackOfDescriptors(batch_.errors_[*index])) {
          waiting_ = index;
          return;
        }
      }
    }
  }

  /// Reads until the lane has a block to process, or drops a file that can't be read. False if the batch was
  /// stopped.
  bool feed(std::size_t lane) {
    while (lanes_.wantsBytes(lane)) {
      if (batch_.isStopped()) return false;
      const auto room = lanes_.room(lane);
      const std::ptrdiff_t count = files_[lane].stream->read(room.data(), room.size());
      if (count < 0) {
        batch_.errors_[files_[lane].index] = errno;
        release(lane);
      } else if (count == 0) {
        lanes_.end(lane);
      } else {
        lanes_.add(lane, static_cast<std::size_t>(count));
      }
    }
    return true;
  }

  void finish(std::size_t lane) {
    batch_.hashes_[files_[lane].index] = lowerCaseHex(lanes_.digest(lane));
    release(lane);
  }

  void release(std::size_t lane) {
    lanes_.drop(lane);
    files_[lane] = {};
    --busy_;
  }

  FileHashBatch& batch_;
  MD5Lanes lanes_;
  std::array<File, kMostMD5Lanes> files_{};
  std::size_t busy_ = 0;
  std::optional<std::size_t> waiting_;  // begun, but not open yet for lack of descriptors
};

FileHashBatch::FileHashBatch(std::vector<std::string> paths, std::size_t workers, const MD5Kernel& kernel,
                             std::function<bool()> isStopped)
    : paths_(std::move(paths)),
      hashes_(paths_.size()),
      errors_(paths_.size()),
      kernel_(kernel),
      stopTest_(std::move(isStopped)) {
  const std::size_t threads = std::max<std::size_t>(workers, 1);
  const std::size_t each = (paths_.size() + threads - 1) / threads;
  share_ = std::min(each, kernel.lanes);
}

void FileHashBatch::run() {
  // A single file is digested faster by the system's library, and needs no lane buffers.
  if (share_ < std::max<std::size_t>(kernel_.leastLanes, 2)) {
    runOneByOne();
  } else {
    Worker(*this).run();
  }
}

void FileHashBatch::runOneByOne() {
  while (const auto index = next()) {
    if (isStopped()) return;
    SharedReadStream stream = open(*index, SharedReadStream::Lack::Waits);
    if (!stream.isOpen()) continue;
    hashes_[*index] = StreamFileHashUnit::hashStream(*stream, [this] { return isStopped(); });
    if (!hashes_[*index]) errors_[*index] = errno;
  }
}

SharedReadStream FileHashBatch::open(std::size_t index, SharedReadStream::Lack lack) {
  SharedReadStream stream = SharedReadStream::open(paths_[index], FileReadStream::Link::Refused, lack);
  errors_[index] = stream.isOpen() ? 0 : errno;
  return stream;
}

std::optional<std::size_t> FileHashBatch::next() {
  const std::size_t index = begun_.fetch_add(1, std::memory_order_relaxed);
  return index < paths_.size() ? std::optional(index) : std::nullopt;
}

bool FileHashBatch::isStopped() {
  if (StreamFileHashUnit::shard().isSuspended() || (stopTest_ && stopTest_()))
    isStopped_.store(true, std::memory_order_relaxed);
  return isStopped_.load(std::memory_order_relaxed);
}

}  // namespace sorrel
