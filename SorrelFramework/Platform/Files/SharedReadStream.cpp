#include "SorrelFramework/Platform/Files/SharedReadStream.hpp"

#include <cerrno>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "SorrelFramework/Platform/Files/OpenFolderLimit.hpp"

namespace sorrel {
namespace {

/// The streams of the process.
struct Streams {
  std::mutex mutex;
  std::condition_variable changed;
  std::size_t open = 0;  // and those that a thread is about to open
  std::uint64_t closed = 0;
};

/// Never destroyed: threads may go on while the process ends.
Streams& streams() {
  static Streams& streams = *new Streams;
  return streams;
}

}  // namespace

SharedReadStream SharedReadStream::open(const std::string& path, FileReadStream::Link link, Lack lack) {
  Streams& all = streams();
  for (;;) {
    std::unique_lock lock(all.mutex);
    // Counted before it is open, so that a thread that finds no descriptor knows that another one has it.
    ++all.open;
    const std::uint64_t closed = all.closed;
    lock.unlock();
    FileReadStream stream = FileReadStream::open(path, link);
    const int error = errno;
    if (stream.isOpen()) return SharedReadStream(std::move(stream));
    lock.lock();
    --all.open;
    all.changed.notify_all();
    const bool waits = lack == Lack::Waits && OpenFolderLimit::isLackOfDescriptors(error);
    if (waits) all.changed.wait(lock, [&all, closed] { return all.closed != closed || all.open == 0; });
    // A stream that was closed since the attempt began may have made it fail, even if none is open now.
    if (waits && all.closed != closed) continue;
    errno = error;
    return {};
  }
}

SharedReadStream& SharedReadStream::operator=(SharedReadStream&& other) noexcept {
  if (this == &other) return *this;
  close();
  stream_ = std::exchange(other.stream_, {});
  return *this;
}

void SharedReadStream::close() noexcept {
  if (!stream_.isOpen()) return;
  stream_ = {};
  Streams& all = streams();
  const std::lock_guard lock(all.mutex);
  --all.open;
  ++all.closed;
  all.changed.notify_all();
}

}  // namespace sorrel
