#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <utility>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel {

/// A regular file, read from its start to its end. No other item is opened at all: a FIFO would block and
/// would wake the program at its other end, and some devices act when they are opened.
class FileReadStream {
 public:
  /// How a link in the last component of the path is treated; links before it are always followed.
  enum class Link { Refused, Followed };

  /// A closed stream, with errno, if the file is missing or not a regular file. A path with a NUL in it names
  /// nothing.
  static FileReadStream open(const std::string& path, Link link);

  FileReadStream() noexcept = default;
  [[nodiscard]] bool isOpen() const noexcept { return file_.isOpen(); }
  /// For queries about the file; -1 if the stream is closed.
  [[nodiscard]] int descriptor() const noexcept { return file_.get(); }
  /// The number of bytes read, up to `count`; 0 at the end, -1 with errno for a failure.
  std::ptrdiff_t read(void* bytes, std::size_t count);

  using ReadFunc = std::function<std::ptrdiff_t(int file, void* bytes, std::size_t count)>;
  /// Every read of the process goes to `read` instead of read(2) until it is set to null. The caller keeps it
  /// alive, and no stream may be in use while it changes.
  static void setReadForTesting(const ReadFunc* read);

 private:
  explicit FileReadStream(FileDescriptor file) noexcept : file_(std::move(file)) {}

  FileDescriptor file_;
};

}  // namespace sorrel
