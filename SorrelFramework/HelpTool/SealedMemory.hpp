#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel {

/// Bytes in a file without a name that no process can change any more, not even its creator: a memfd with the
/// seals SHRINK, GROW, WRITE and SEAL. Bytes are passed in this form between two programs that do not trust
/// each other: once checked they stay unchanged, and no mapping of them can be truncated.
class SealedMemory {
 public:
  /// Creates one piece by piece, without holding its bytes in between.
  class Builder {
   public:
    Builder();
    void append(std::string_view bytes);
    /// The appended bytes, with all seals; a closed descriptor if the system had no memory for it. To be
    /// called once.
    [[nodiscard]] FileDescriptor seal();

   private:
    static constexpr std::size_t kBufferSize = std::size_t{64} << 10;

    bool flush();

    FileDescriptor memory_;
    std::string buffer_;
    bool isWhole_;
  };

  /// Creates one from `bytes`; a closed descriptor if the system has no memory for it.
  [[nodiscard]] static FileDescriptor make(std::string_view bytes);

  /// Memory of `size` bytes, all zero, for another process to fill: its size can't change any more. A closed
  /// descriptor if the system has no memory for it.
  [[nodiscard]] static FileDescriptor forFilling(std::size_t size);
  /// Seals memory that another process has filled and maps it. Nothing while that process can still write to
  /// it, nor if it left a part unfilled, whose memory this process would have to pay for.
  [[nodiscard]] static std::optional<SealedMemory> sealFilled(const FileDescriptor& memory);

  /// The content of a descriptor from an untrusted sender. Nothing unless it is a memfd of ordinary memory
  /// with all four seals and 1 to `limit` bytes, none of them in a hole, so that reading it takes no memory;
  /// it is mapped only after all these checks. The descriptor may be closed afterwards.
  [[nodiscard]] static std::optional<SealedMemory> map(int descriptor, std::size_t limit);

  SealedMemory(SealedMemory&& other) noexcept : bytes_(std::exchange(other.bytes_, {})) {}
  SealedMemory& operator=(SealedMemory&& other) noexcept {
    std::swap(bytes_, other.bytes_);
    return *this;
  }
  ~SealedMemory();

  [[nodiscard]] std::string_view bytes() const noexcept { return bytes_; }

 private:
  explicit SealedMemory(std::string_view bytes) : bytes_(bytes) {}

  std::string_view bytes_;  // the mapping; empty after a move
};

}  // namespace sorrel
