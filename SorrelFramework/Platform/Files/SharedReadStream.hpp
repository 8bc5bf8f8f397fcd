#pragma once

#include <string>
#include <utility>

#include "SorrelFramework/Platform/Files/FileReadStream.hpp"

namespace sorrel {

/// A FileReadStream of one of several threads that read many files each to its end, with fewer descriptors
/// than they would like to have (EMFILE, ENFILE). All such streams of the process are counted. Any thread.
class SharedReadStream {
 public:
  enum class Lack {
    Fails,  ///< for a thread that has another such stream open, and can go on with that
    /// For a thread that has none: waits until one of another thread is closed, and fails only if there is
    /// none. Those threads must not wait for this one.
    Waits,
  };

  /// A closed stream, with errno, if the file can't be opened.
  static SharedReadStream open(const std::string& path, FileReadStream::Link link, Lack lack);

  SharedReadStream() noexcept = default;
  SharedReadStream(SharedReadStream&& other) noexcept : stream_(std::exchange(other.stream_, {})) {}
  SharedReadStream& operator=(SharedReadStream&& other) noexcept;
  ~SharedReadStream() { close(); }

  [[nodiscard]] bool isOpen() const noexcept { return stream_.isOpen(); }
  FileReadStream& operator*() noexcept { return stream_; }
  FileReadStream* operator->() noexcept { return &stream_; }
  /// Lets a thread that waits go on.
  void close() noexcept;

 private:
  explicit SharedReadStream(FileReadStream stream) noexcept : stream_(std::move(stream)) {}

  FileReadStream stream_;
};

}  // namespace sorrel
