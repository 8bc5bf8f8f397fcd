#pragma once

#include <string_view>
#include <utility>

namespace sorrel {

/// Owns an open file descriptor; -1 for none.
class FileDescriptor {
 public:
  FileDescriptor() noexcept = default;
  explicit FileDescriptor(int descriptor) noexcept : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~FileDescriptor() { reset(); }

  [[nodiscard]] int get() const noexcept { return descriptor_; }
  [[nodiscard]] bool isOpen() const noexcept { return descriptor_ >= 0; }
  /// Closes it at once. False if there is none, or if the file system reports a deferred write error.
  bool close() noexcept;
  void reset() noexcept;

 private:
  int descriptor_ = -1;
};

/// Writes all of `bytes`, in as many calls as needed. False, with errno set, after the first call that fails.
[[nodiscard]] bool writeAll(int descriptor, std::string_view bytes) noexcept;

}  // namespace sorrel
