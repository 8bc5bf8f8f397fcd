#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel {

/// Bytes in a file without a name that nobody can change any more, not even its maker: a memfd with the seals
/// SHRINK, GROW, WRITE and SEAL. The form in which bytes pass between two programs that do not trust each
/// other: what was checked once stays as it was, and no mapping of it can be cut short.
class SealedMemory {
 public:
  /// Makes one piece by piece, without holding its bytes in between.
  class Builder {
   public:
    Builder();
    void append(std::string_view bytes);
    /// What was appended, with all seals; none open if the system had no memory for it. Once.
    [[nodiscard]] FileDescriptor seal();

   private:
    static constexpr std::size_t kBufferSize = std::size_t{64} << 10;

    bool flush();

    FileDescriptor memory_;
    std::string buffer_;
    bool isWhole_;
  };

  /// Makes one of `bytes`; none open if the system has no memory for it.
  [[nodiscard]] static FileDescriptor make(std::string_view bytes);

  /// Memory of `size` bytes, all zero, for another process to fill: its size can't change any more. None open
  /// if the system has no memory for it.
  [[nodiscard]] static FileDescriptor forFilling(std::size_t size);
  /// Seals what another process has filled and maps it. Nothing while that process can still write to it, nor
  /// if it left a part out, whose memory this process would have to pay for.
  [[nodiscard]] static std::optional<SealedMemory> sealFilled(const FileDescriptor& memory);

  /// The content of a descriptor that came from anybody. Nothing unless it is a memfd of ordinary memory with
  /// all four seals and 1 to `limit` bytes, none of them in a hole, so that reading it takes no memory;
  /// nothing is mapped before all of that is known. The descriptor may be closed afterwards.
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
