#include "Tests/Support/ReplacedRead.hpp"

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace sorrel::test {

ReplacedRead::ReplacedRead(OnRead onRead)
    : onRead_(std::move(onRead)),
      read_([this](int file, void* bytes, std::size_t count) { return read(file, bytes, count); }) {
  FileReadStream::setReadForTesting(&read_);
}

ReplacedRead::~ReplacedRead() { FileReadStream::setReadForTesting(nullptr); }

std::vector<ReplacedRead::Note> ReplacedRead::notes() const {
  const std::lock_guard lock(mutex_);
  return notes_;
}

std::ptrdiff_t ReplacedRead::read(int file, void* bytes, std::size_t count) {
  const std::lock_guard lock(mutex_);
  std::ptrdiff_t got = onRead_ ? onRead_(reads_) : 0;
  ++reads_;
  if (got == 0) {
    got = ::read(file, bytes, count);
  } else {
    errno = EIO;
  }
  notes_.push_back({file, count, got});
  return got;
}

}  // namespace sorrel::test
