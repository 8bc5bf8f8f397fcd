#pragma once

#include <cstddef>
#include <functional>
#include <mutex>
#include <vector>

#include "SorrelFramework/Platform/Files/FileReadStream.hpp"

namespace sorrel::test {

/// While it lives, every read of a FileReadStream is recorded and goes through `onRead`.
class ReplacedRead {
 public:
  struct Note {
    int file;
    std::size_t asked;
    std::ptrdiff_t got;
  };
  /// Gets the number of the read, counted from 0 over all streams; a negative result replaces the read, 0
  /// performs it.
  using OnRead = std::function<std::ptrdiff_t(std::size_t number)>;

  explicit ReplacedRead(OnRead onRead = nullptr);
  ~ReplacedRead();
  ReplacedRead(const ReplacedRead&) = delete;
  ReplacedRead& operator=(const ReplacedRead&) = delete;

  [[nodiscard]] std::vector<Note> notes() const;

 private:
  std::ptrdiff_t read(int file, void* bytes, std::size_t count);

  OnRead onRead_;
  FileReadStream::ReadFunc read_;
  mutable std::mutex mutex_;
  std::size_t reads_ = 0;
  std::vector<Note> notes_;
};

}  // namespace sorrel::test
