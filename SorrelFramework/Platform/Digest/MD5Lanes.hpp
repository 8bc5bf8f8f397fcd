#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "SorrelFramework/Platform/Digest/MD5Kernels.hpp"

namespace sorrel {

/// The MD5 (RFC 1321) of several messages at once, one in each lane; messages of any lengths, each started
/// and ended on its own. The bytes are written directly into the buffers of the lanes, kChunk at a time:
///
///     start(lane); while (wantsBytes(lane)) { n = read into room(lane); n > 0 ? add(lane, n) : end(lane); }
///     run(); ... and so on, until isDone(lane)
///
/// Not shared between threads; an object has 16 KiB for each lane of its kernel.
class MD5Lanes {
 public:
  static constexpr std::size_t kChunk = 16384;

  /// `kernel` must be supported and outlive it.
  explicit MD5Lanes(const MD5Kernel& kernel);

  [[nodiscard]] std::size_t count() const { return kernel_.lanes; }
  /// Begins a message; the lane must be idle.
  void start(std::size_t lane);
  /// Discards the message; the lane becomes idle.
  void drop(std::size_t lane);
  /// True from start() until drop() or digest().
  [[nodiscard]] bool isBusy(std::size_t lane) const { return lanes_[lane].state != State::Idle; }

  /// True while the message has not ended and too few bytes are buffered for run().
  [[nodiscard]] bool wantsBytes(std::size_t lane) const;
  /// kChunk bytes for the next piece of the message; only for a lane that wants bytes.
  [[nodiscard]] std::span<std::uint8_t> room(std::size_t lane);
  /// `length` bytes were written into the room.
  void add(std::size_t lane, std::size_t length);
  /// The message has no more bytes.
  void end(std::size_t lane);

  /// Processes at least one block of each busy lane, none of which may want bytes.
  void run();

  /// The message has ended and is fully processed; digest() makes the lane idle again.
  [[nodiscard]] bool isDone(std::size_t lane) const;
  [[nodiscard]] std::array<std::uint8_t, 16> digest(std::size_t lane);

 private:
  enum class State : std::uint8_t { Idle, Open, Ended };
  /// Unprocessed input: bytes from `from` to `to` of the lane's buffer.
  struct Lane {
    State state = State::Idle;
    std::size_t from = 0;
    std::size_t to = 0;
    std::uint64_t length = 0;
    [[nodiscard]] std::size_t blocks() const { return (to - from) / kMD5Block; }
  };
  /// The rest of a block followed by a chunk; or that rest, and the padding of one block or two.
  static constexpr std::size_t kBuffer = kMD5Block + kChunk;

  [[nodiscard]] std::uint8_t* buffer(std::size_t lane) { return buffers_.get() + lane * kBuffer; }
  void runSideBySide(std::size_t blocks);
  void runOneByOne();

  const MD5Kernel& kernel_;
  std::unique_ptr<std::uint8_t[]> buffers_;
  std::array<Lane, kMostMD5Lanes> lanes_{};
  MD5States states_{};
};

}  // namespace sorrel
